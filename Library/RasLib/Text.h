// C strings in fields of fixed size, and UTF-16 strings.
#pragma once

#include "Platform/Base.h"

// Characters of Text before its NUL, at most Max.
constexpr UINTN TextLength(const CHAR8* Text, UINTN Max) {
    UINTN Length = 0;
    while (Length < Max && Text[Length] != 0) {
        Length++;
    }
    return Length;
}

// Characters of a UTF-16 text before its NUL, at most Max.
constexpr UINTN TextLength(const CHAR16* Text, UINTN Max = SIZE_MAX) {
    UINTN Length = 0;
    while (Length < Max && Text[Length] != 0) {
        Length++;
    }
    return Length;
}

// Bytes of a UTF-16 text with its terminating NUL.
constexpr UINTN TextSize(const CHAR16* Text) {
    return (TextLength(Text) + 1) * sizeof(CHAR16);
}

// True when both UTF-16 texts hold the same characters up to and with the NUL.
constexpr bool SameText(const CHAR16* Left, const CHAR16* Right) {
    while (*Left != 0 && *Left == *Right) {
        Left++;
        Right++;
    }
    return *Left == *Right;
}

// True when Text equals Field, a C string of at most FieldMax characters that need not be terminated.
constexpr bool SameText(const CHAR8* Text, const CHAR8* Field, UINTN FieldMax) {
    UINTN At = 0;
    while (At < FieldMax && Text[At] != 0 && Text[At] == Field[At]) {
        At++;
    }
    return Text[At] == (At < FieldMax ? Field[At] : CHAR8{0});
}

// Copies Source, a C string of at most SourceMax characters that need not be terminated, into a field of Size
// bytes. What does not fit is cut; the field always ends in a NUL and its rest is zeroed. Size 0 copies nothing.
constexpr void CopyTextCut(CHAR8* Destination, UINTN Size, const CHAR8* Source, UINTN SourceMax) {
    if (Size == 0) {
        return;
    }
    const UINTN Length = TextLength(Source, SourceMax < Size - 1 ? SourceMax : Size - 1);
    for (UINTN At = 0; At < Size; At++) {
        Destination[At] = At < Length ? Source[At] : CHAR8{0};
    }
}

// Copies Source with its NUL into a buffer of Size bytes. EFI_INVALID_PARAMETER for a NULL pointer or Size 0;
// EFI_BUFFER_TOO_SMALL when it does not fit (nothing is written); EFI_SUCCESS.
constexpr EFI_STATUS CopyText(CHAR8* Destination, UINTN Size, const CHAR8* Source) {
    if (Destination == nullptr || Source == nullptr || Size == 0) {
        return EFI_INVALID_PARAMETER;
    }
    const UINTN Length = TextLength(Source, Size);
    if (Length == Size) {
        return EFI_BUFFER_TOO_SMALL;
    }
    for (UINTN At = 0; At <= Length; At++) {
        Destination[At] = Source[At];
    }
    return EFI_SUCCESS;
}

// Appends Source to the text in a buffer of Size bytes; what does not fit is cut, the NUL is not.
// EFI_INVALID_PARAMETER for a NULL pointer or a buffer without a NUL; EFI_BUFFER_TOO_SMALL when not even the first
// character fits; EFI_SUCCESS.
constexpr EFI_STATUS AppendTextCut(CHAR8* Destination, UINTN Size, const CHAR8* Source) {
    if (Destination == nullptr || Source == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    const UINTN Length = TextLength(Destination, Size);
    if (Length == Size) {
        return EFI_INVALID_PARAMETER;
    }
    if (Size - Length == 1 && Source[0] != 0) {
        return EFI_BUFFER_TOO_SMALL;
    }
    CopyTextCut(Destination + Length, Size - Length, Source, SIZE_MAX);
    return EFI_SUCCESS;
}
