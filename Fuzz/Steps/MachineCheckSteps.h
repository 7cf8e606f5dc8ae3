// Errors of processors and memory.
#pragma once

#include "Fuzz/Input.h"
#include "Simulator/Simulation.h"

// A small machine, and how it treats these errors.
Simulator::Configuration AnyMachineCheckMachine(FuzzInput& Input);

// A machine check, an SMI, time that passes, an MSR that the OS writes, a memory error, a service that fails, a
// repair that ends. Throws std::invalid_argument for a place that the machine does not have.
void MachineCheckStep(Simulator::Simulation& Machine, FuzzInput& Input);
