// The last step of every SMI that post-processed errors.
#pragma once

// Raises the one signal that the SMI's records asked for, an NMI before an SCI, and forgets the SMI's state.
void VornElogSmmPostProcessCleanup();
