// Software-SMI dispatchers: the standard one (PI 1.8, volume 4, section 6.2), the south bridge's, and the
// south bridge's dispatcher for the RAS SMIs of root complexes.
#pragma once

#include "Platform/Base.h"

struct EFI_SMM_SW_REGISTER_CONTEXT {
    UINTN SwSmiInputValue;
};

struct EFI_SMM_SW_DISPATCH2_PROTOCOL {
    using HANDLER = EFI_STATUS (*)(EFI_HANDLE DispatchHandle, const void* Context, void* CommBuffer,
                                   UINTN* CommBufferSize);
    // EFI_INVALID_PARAMETER when the value is out of range or taken.
    EFI_STATUS(*Register)
    (const EFI_SMM_SW_DISPATCH2_PROTOCOL* This, HANDLER DispatchFunction,
     EFI_SMM_SW_REGISTER_CONTEXT* RegisterContext, EFI_HANDLE* DispatchHandle);
    EFI_STATUS (*UnRegister)(const EFI_SMM_SW_DISPATCH2_PROTOCOL* This, EFI_HANDLE DispatchHandle);
    UINTN MaximumSwiValue;
};

struct FCH_SMM_SW_REGISTER_CONTEXT {
    UINT64 SwValue;
    UINT8 Order;
};

struct FCH_SMM_SW_DISPATCH2_PROTOCOL {
    // The context that a handler gets is the one that it was registered with.
    using HANDLER = EFI_STATUS (*)(EFI_HANDLE DispatchHandle, const FCH_SMM_SW_REGISTER_CONTEXT* Context,
                                   void* CommBuffer, UINTN* CommBufferSize);
    EFI_STATUS(*Register)
    (const FCH_SMM_SW_DISPATCH2_PROTOCOL* This, HANDLER DispatchFunction,
     const FCH_SMM_SW_REGISTER_CONTEXT* RegisterContext, EFI_HANDLE* DispatchHandle);
    EFI_STATUS (*UnRegister)(const FCH_SMM_SW_DISPATCH2_PROTOCOL* This, EFI_HANDLE DispatchHandle);
};

struct FCH_SMM_APU_RAS_REGISTER_CONTEXT {
    UINT8 Socket;
    UINT8 Die;
    UINT8 BusNumber;
    UINT8 Segment;
    UINT8 Nbio;
    UINT8 Order;
};
static_assert(sizeof(FCH_SMM_APU_RAS_REGISTER_CONTEXT) == 6);

struct FCH_SMM_APU_RAS_DISPATCH_PROTOCOL {
    using HANDLER = EFI_STATUS (*)(EFI_HANDLE DispatchHandle, const FCH_SMM_APU_RAS_REGISTER_CONTEXT* Context);
    EFI_STATUS(*Register)
    (const FCH_SMM_APU_RAS_DISPATCH_PROTOCOL* This, HANDLER DispatchFunction,
     const FCH_SMM_APU_RAS_REGISTER_CONTEXT* RegisterContext, EFI_HANDLE* DispatchHandle);
    EFI_STATUS (*UnRegister)(const FCH_SMM_APU_RAS_DISPATCH_PROTOCOL* This, EFI_HANDLE DispatchHandle);
};
