// What MicroSecondDelay counts by.
#pragma once

// Finds out how fast the stall timer runs. Called once, when the image is loaded, before anything stalls.
extern "C" void StallTimerConstructor();
