// Where the driver's mutable state lives.
#pragma once

// Marks a mutable global of the driver. All of them land in one section, so that a loader can put the
// driver's state back to its load image by restoring that section and nothing can be forgotten.
// Use it on namespace-scope objects with constant initialisation only.
#define KYR_STATE __attribute__((section("kyrstate")))
