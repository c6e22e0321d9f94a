#include "tools/lldp-cli/Cli.h"

int main(int argc, char** argv) { return LldpCli::main(argc, argv); }
