#include "Library/VornElogPolicyLib/Notification/Cleanup.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogPolicyLib/Notification/OsNotification.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

void VornElogSmmPostProcessCleanup() {
    if (VornApeiIssueNmiFlag != FALSE) {
        Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: Issuing NMI for OS error containment\n");
        VornElogSmmIssueNmi();
    } else if (VornApeiIssueSciFlag != FALSE) {
        VornElogSmmIssueSci();
    }
    ApeiGhesClearedThisSmi = FALSE;
    VornApeiIssueSciFlag = FALSE;
    VornApeiIssueNmiFlag = FALSE;
    ApeiSciCause = 0;
}
