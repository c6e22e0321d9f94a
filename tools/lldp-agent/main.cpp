#include "tools/lldp-agent/Daemon.h"

int main(int argc, char** argv) { return LldpAgent::main(argc, argv); }
