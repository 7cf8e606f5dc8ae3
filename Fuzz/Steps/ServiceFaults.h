// Services and allocations that fail.
#pragma once

#include "Fuzz/Input.h"
#include "Simulator/Simulation.h"

// Some member of some service returns some error for some of its calls.
void FailAMember(Simulator::Simulation& Machine, FuzzInput& Input);
