#include "tools/lldp-neighbors/Tool.h"

int main(int argc, char** argv) { return LldpNeighbors::main(argc, argv); }
