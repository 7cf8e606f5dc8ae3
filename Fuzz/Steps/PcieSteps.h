// PCI Express hierarchies and what happens in them.
#pragma once

#include "Fuzz/Input.h"
#include "Simulator/Machine/PcieFunction.h"
#include "Simulator/Simulation.h"

// A function's own capabilities and registers, broken ones among them: capability lists that run off the end, lengths
// that lie, headers of another type. What lies below it is left empty.
Simulator::PcieFunctionSetting AnyFunction(FuzzInput& Input, Simulator::PcieKind Kind);

// Ports of any root complexes of a machine, or what was read from another one.
Simulator::PcieSettings AnyHierarchy(FuzzInput& Input, unsigned RootComplexes);

// Whether the capability lists of all functions come to an end. The driver follows one that loops for ever, as it is
// meant to: such a machine is not tried, and no step makes one of it.
bool DoAllListsEnd(Simulator::Simulation& Machine);

// Some function below a root complex. Throws std::invalid_argument where there is none.
Simulator::PcieFunction& AnyFunctionOf(Simulator::Simulation& Machine, FuzzInput& Input);

// An error at a function, an SMI, a register that software writes or hardware changes, a link or slot that changes, a
// device that dies, an OS that takes over or recovers contained ports, memory that it shares with the driver, time
// that passes. Throws std::invalid_argument for what the machine does not have.
void PcieStep(Simulator::Simulation& Machine, FuzzInput& Input);
