// Corrected records at the end of an SMI.
#pragma once

// Logs the corrected records, newest first, and tells the OS once where any of them asks for it.
void VornElogSmmPostProcessErrorRecordsCorrected();
