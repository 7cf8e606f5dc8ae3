// Assertions: a promise inside the driver that was broken. The text goes to the error level, then the
// processor stops at a breakpoint; where the breakpoint returns, so does the assertion.
#pragma once

#include "Platform/Base.h"

// Prints "ASSERT [module] file(line): condition" and stops.
void AssertFailed(const CHAR8* Condition, const CHAR8* File = __builtin_FILE(), UINT32 Line = __builtin_LINE());

// Prints the status, then as above.
void AssertStatusFailed(EFI_STATUS Status, const CHAR8* File = __builtin_FILE(), UINT32 Line = __builtin_LINE());

#define ASSERT(Expression)             \
    do {                               \
        if (!(Expression)) {           \
            AssertFailed(#Expression); \
        }                              \
    } while (false)

// Evaluates StatusExpression once.
#define ASSERT_EFI_ERROR(StatusExpression)                    \
    do {                                                      \
        const EFI_STATUS AssertedStatus = (StatusExpression); \
        if (EFI_ERROR(AssertedStatus)) {                      \
            AssertStatusFailed(AssertedStatus);               \
        }                                                     \
    } while (false)
