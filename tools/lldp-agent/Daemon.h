#pragma once
// lldp-agent: runs LLDP on the Linux interfaces it is given. See main() in Daemon.cpp
// and the README ("The agent").
namespace LldpAgent {
int main(int argc, char** argv);
}
