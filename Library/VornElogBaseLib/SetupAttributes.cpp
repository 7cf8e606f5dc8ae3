#include "Library/VornElogBaseLib/SetupAttributes.h"

#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Protocols.h"
#include "Library/RasLib/Text.h"
#include "Library/RasLib/Trace.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/VendorServices.h"
#include "Platform/State.h"

namespace {

constexpr UINTN FIRST_TRY_SIZE = 32;
constexpr UINTN COMPARE_BUFFER_SIZE = 62;

// Found once by VornIsNvramAttributeEqual and kept.
KYR_STATE const VORN_ATTRIBUTE_SMM_PROTOCOL* mAttributes = nullptr;

EFI_STATUS ReadAttribute(const VORN_ATTRIBUTE_SMM_PROTOCOL* Attributes, const CHAR16* Name, UINTN* Size,
                         void* Buffer) {
    return Attributes->GetAttributeValue(Attributes, &gVornAttributeVendorGuid, Name, nullptr, Size, Buffer);
}

// Reads the attribute as the store holds it into a new block of *Size bytes.
EFI_STATUS ReadWholeAttribute(const CHAR16* Name, UINT8** Buffer, UINTN* Size) {
    *Size = FIRST_TRY_SIZE;
    if (EFI_ERROR(AllocateRuntimeData(*Size, Buffer))) {
        return EFI_OUT_OF_RESOURCES;
    }
    const VORN_ATTRIBUTE_SMM_PROTOCOL* Attributes = nullptr;
    EFI_STATUS Status = LocateSmmProtocol(gVornAttributeSmmProtocolGuid, &Attributes);
    if (!EFI_ERROR(Status)) {
        Status = ReadAttribute(Attributes, Name, Size, *Buffer);
        if (Status == EFI_BUFFER_TOO_SMALL) {
            FreeRuntimeData(*Buffer);
            if (EFI_ERROR(AllocateRuntimeData(*Size, Buffer))) {
                return EFI_OUT_OF_RESOURCES;
            }
            Status = ReadAttribute(Attributes, Name, Size, *Buffer);
        }
    }
    if (EFI_ERROR(Status)) {
        FreeRuntimeData(*Buffer);
        *Buffer = nullptr;
    }
    return Status;
}

// True when the attribute, read into a buffer of BufferSize bytes, is exactly the Size bytes at Expected.
bool IsAttribute(const CHAR16* Name, void* Buffer, UINTN BufferSize, const void* Expected, UINTN Size) {
    UINTN Read = BufferSize;
    return !EFI_ERROR(ReadAttribute(mAttributes, Name, &Read, Buffer)) && Read == Size &&
           SameMem(Buffer, Expected, Size);
}

}  // namespace

EFI_STATUS VornGetNvramAttributeString(const CHAR16* AttributeName, CHAR16** AttributeValue) {
    if (AttributeName == nullptr || AttributeValue == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *AttributeValue = nullptr;
    UINT8* Value = nullptr;
    UINTN Size = 0;
    const EFI_STATUS Status = ReadWholeAttribute(AttributeName, &Value, &Size);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r reading setup attribute %s, aborting...\n", Status, AttributeName);
        return Status;
    }
    CHAR16* Text = nullptr;
    if (EFI_ERROR(AllocateZeroedRuntimeData(Size + sizeof(CHAR16), &Text))) {
        FreeRuntimeData(Value);
        Trace(DEBUG_ERROR,
              "%a: ERROR %r allocating EfiRuntimeServicesData memory for setup attribute %s, aborting...\n",
              EFI_OUT_OF_RESOURCES, AttributeName);
        return EFI_OUT_OF_RESOURCES;
    }
    CopyMem(Text, Value, Size);
    Text[Size / sizeof(CHAR16)] = 0;
    FreeRuntimeData(Value);
    *AttributeValue = Text;
    return EFI_SUCCESS;
}

BOOLEAN VornIsNvramAttributeEqual(const CHAR16* AttributeName, const CHAR16* ExpectedValue, UINTN ExpectedSize) {
    if (AttributeName == nullptr || ExpectedValue == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return FALSE;
    }
    if (mAttributes == nullptr) {
        const EFI_STATUS Status = LocateSmmProtocol(gVornAttributeSmmProtocolGuid, &mAttributes);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR, "%a: ERROR %r locating protocol gVornAttributeSmmProtocolGuid, aborting...\n", Status);
            return FALSE;
        }
    }
    if (ExpectedSize <= COMPARE_BUFFER_SIZE) {
        UINT8 Buffer[COMPARE_BUFFER_SIZE];
        const UINTN Size = ExpectedSize != 0 ? ExpectedSize : TextSize(ExpectedValue);
        return IsAttribute(AttributeName, Buffer, sizeof(Buffer), ExpectedValue, Size) ? TRUE : FALSE;
    }
    UINT8* Buffer = nullptr;
    const EFI_STATUS Status = AllocateRuntimeData(ExpectedSize, &Buffer);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r allocating EfiRuntimeServicesData memory for setup attribute %s, aborting...\n", Status,
              AttributeName);
        return FALSE;
    }
    const bool Equal = IsAttribute(AttributeName, Buffer, ExpectedSize, ExpectedValue, ExpectedSize);
    FreeRuntimeData(Buffer);
    return Equal ? TRUE : FALSE;
}
