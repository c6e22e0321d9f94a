#pragma once
// lldp-cli: the command-line client of lldp-agent's service. See main() in Cli.cpp.
namespace LldpCli {
int main(int argc, char** argv);
}
