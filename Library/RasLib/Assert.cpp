#include "Library/RasLib/Assert.h"

#include "Library/RasLib/Trace.h"

static constexpr CHAR8 MODULE_NAME[] = "KyrPlatformRasQtzSmm";

// The build's folders are nobody's business in a log.
static const CHAR8* FileName(const CHAR8* Path) {
    const CHAR8* Name = Path;
    for (const CHAR8* At = Path; *At != 0; At++) {
        if (*At == '/' || *At == '\\') {
            Name = At + 1;
        }
    }
    return Name;
}

void AssertFailed(const CHAR8* Condition, const CHAR8* File, UINT32 Line) {
    Trace(DEBUG_ERROR, "ASSERT [%a] %a(%d): %a\n", MODULE_NAME, FileName(File), Line, Condition);
    CpuBreakpoint();
}

void AssertStatusFailed(EFI_STATUS Status, const CHAR8* File, UINT32 Line) {
    Trace(DEBUG_ERROR, "\nASSERT_EFI_ERROR (Status = %r)\n", Status);
    AssertFailed("!EFI_ERROR (Status)", File, Line);
}
