// CXL functions, what their registers show, and what happens in them.
#pragma once

#include "Fuzz/Input.h"
#include "Simulator/Machine/PcieSettings.h"
#include "Simulator/Simulation.h"

// Ports that lead to CXL memory devices, accelerators and switches, or stand for restricted devices. Register
// locators, capability arrays and single registers show anything.
Simulator::PcieSettings AnyCxlHierarchy(FuzzInput& Input, unsigned RootComplexes);

// A protocol error, an event record of any bytes, a mailbox that answers anything or not at all, a register that
// shows something else, an OS that evaluates _OSC, an SMI, or what can happen to any PCIe function. Throws
// std::invalid_argument for what the machine does not have.
void CxlStep(Simulator::Simulation& Machine, FuzzInput& Input);
