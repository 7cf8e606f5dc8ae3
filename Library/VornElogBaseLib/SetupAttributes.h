// Setup attributes, UTF-16 texts by name.
#pragma once

#include "Platform/Base.h"

// Reads an attribute into a new NUL-terminated text in the SMM pool, which the caller frees; *AttributeValue is
// NULL after a failure. EFI_INVALID_PARAMETER for a NULL pointer; EFI_OUT_OF_RESOURCES; the status of the locate
// or of the attribute store; EFI_SUCCESS.
EFI_STATUS VornGetNvramAttributeString(const CHAR16* AttributeName, CHAR16** AttributeValue);

// TRUE when the attribute can be read and equals ExpectedValue byte for byte. ExpectedSize in bytes; 0 takes the
// size of ExpectedValue with its terminating NUL. FALSE for a NULL name or value.
BOOLEAN VornIsNvramAttributeEqual(const CHAR16* AttributeName, const CHAR16* ExpectedValue, UINTN ExpectedSize = 0);
