#include "Kel/GenericIf.h"

#include <gtest/gtest.h>

using namespace Kel;
using GenericIfImpl::genericIfVoidPtrIs;

namespace {
KelType const entity("Test::Entity", KelType::Kind::Entity);
KelType const derivedEntity("Test::DerivedEntity", KelType::Kind::Entity, &entity);
KelType const otherEntity("Test::OtherEntity", KelType::Kind::Entity);
KelType const value("Test::Value", KelType::Kind::Value);
KelType const derivedValue("Test::DerivedValue", KelType::Kind::Value, &value);
KelType const valueFromEntity("Test::ValueFromEntity", KelType::Kind::Value, &entity);
KelType const entityFromValue("Test::EntityFromValue", KelType::Kind::Entity, &value);

struct Record {
  int a = 0;
  static KelType const _kelType;
};
KelType const Record::_kelType("Test::Record", KelType::Kind::Value);
}  // namespace

// The codes cross library boundaries.
static_assert(GenericIf::attrGet == 0 && GenericIf::attrSet == 1 && GenericIf::valueIsDefault == 9 &&
              GenericIf::valueEquals == 10 && GenericIf::valueLess == 11);

TEST(GenericIf, VoidPtrConversions) {
  int object = 0;
  struct Case { KelType const* given; KelType const* wanted; bool accepted; };
  const Case cases[] = {
      {&value, &value, true},
      {&entity, &entity, true},
      {&entity, &derivedEntity, true},        // wanted derives from given
      {&value, &derivedValue, true},
      {&derivedEntity, &entity, false},       // upward is not "derives from given"
      {&otherEntity, &entity, false},
      {&value, &entityFromValue, false},      // derived, but polymorphism differs
      {&value, &otherEntity, false},
  };
  for (auto const& c : cases) {
    if (c.accepted) {
      EXPECT_EQ(genericIfVoidPtrIs(&object, c.given, c.wanted), &object) << c.given->name() << "->" << c.wanted->name();
    } else {
      try {
        genericIfVoidPtrIs(&object, c.given, c.wanted);
        ADD_FAILURE() << c.given->name() << "->" << c.wanted->name() << " accepted";
      } catch (TypeException const& e) {
        EXPECT_EQ(String(e.what()), format("GenericIf: cannot convert a pointer to %s into a pointer to %s",
                                           c.given->name(), c.wanted->name()));
      }
    }
  }
  Record r;
  EXPECT_EQ(GenericIfImpl::GenericIfValueMethods<Record>::genericIfVoidPtrIs(&r, &Record::_kelType), &r);
}

TEST(GenericIfDeathTest, WrongDescriptorForAValueAborts) {
  int object = 0;
  EXPECT_DEATH(genericIfVoidPtrIs(&object, &derivedValue, &value), "Assertion failed: type->isPolymorphic\\(\\)");
  EXPECT_DEATH(genericIfVoidPtrIs(&object, &entity, &valueFromEntity), "Assertion failed: !t->isPolymorphic\\(\\)");
  EXPECT_DEATH(genericIfVoidPtrIs(&object, &entity, &value), "Assertion failed: !t->isPolymorphic\\(\\)");
}

TEST(GenericIf, ErrorMessages) {
  try {
    GenericIfImpl::throwUnhashableException(&value);
  } catch (UnhashableException const& e) {
    EXPECT_STREQ(e.what(), "GenericIf: type Test::Value is not hashable");
  }
  try {
    GenericIfImpl::throwReinstantiationException(&entity, "Ethernet1", "creationTime=2.0");
  } catch (ReinstantiationException const& e) {
    EXPECT_STREQ(e.what(),
                 "GenericIf: Test::Entity 'Ethernet1' already exists with different constructor arguments"
                 " (refused: creationTime=2.0)");
  }
}
