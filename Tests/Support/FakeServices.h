// An SMM system table with a pool and a protocol database, for tests of a floor without the firmware around it.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "Library/RasLib/Globals.h"

// While it lives, gSmst is its table; a later one stands before an earlier one.
class FakeServices {
 public:
    FakeServices() : Before(gSmst), Outer(Current) {
        Current = this;
        Table.SmmAllocatePool = Allocate;
        Table.SmmFreePool = Free;
        Table.SmmLocateProtocol = Locate;
        Table.SmmRegisterProtocolNotify = Notify;
        gSmst = &Table;
    }
    ~FakeServices() {
        for (const auto& [Block, Size] : Blocks) {
            std::free(Block);
        }
        gSmst = Before;
        Current = Outer;
    }
    FakeServices(const FakeServices&) = delete;
    FakeServices& operator=(const FakeServices&) = delete;

    // A NULL interface takes the protocol away.
    void Install(const EFI_GUID& Guid, const void* Interface) {
        if (Interface == nullptr) {
            Protocols.erase(Key(Guid));
        } else {
            Protocols[Key(Guid)] = const_cast<void*>(Interface);
        }
    }

    EFI_SMM_SYSTEM_TABLE2 Table{};
    std::uint64_t FailAllocation = 0;  // the n-th allocation from now fails; 0: none
    std::uint64_t FailFree = 0;        // the same for releases
    std::uint64_t LiveBlocks = 0;
    std::map<void*, UINTN> Blocks;  // the live ones with their sizes in bytes
    std::uint64_t Locates = 0;
    EFI_SMM_NOTIFY_FN Notified = nullptr;  // who is registered for a notification

 private:
    static std::string Key(const EFI_GUID& Guid) {
        return std::string(reinterpret_cast<const char*>(&Guid), sizeof(Guid));
    }
    static EFI_STATUS Allocate(EFI_MEMORY_TYPE, UINTN Size, void** Buffer) {
        if (Current->FailAllocation != 0 && --Current->FailAllocation == 0) {
            return EFI_OUT_OF_RESOURCES;
        }
        *Buffer = std::malloc(Size == 0 ? 1 : Size);
        std::memset(*Buffer, 0xA5, Size);
        Current->Blocks[*Buffer] = Size;
        Current->LiveBlocks++;
        return EFI_SUCCESS;
    }
    static EFI_STATUS Free(void* Buffer) {
        if ((Current->FailFree != 0 && --Current->FailFree == 0) || Current->Blocks.erase(Buffer) == 0) {
            return EFI_INVALID_PARAMETER;
        }
        std::free(Buffer);
        Current->LiveBlocks--;
        return EFI_SUCCESS;
    }
    static EFI_STATUS Locate(const EFI_GUID* Guid, void*, void** Interface) {
        Current->Locates++;
        const auto Found = Current->Protocols.find(Key(*Guid));
        if (Found == Current->Protocols.end()) {
            return EFI_NOT_FOUND;
        }
        *Interface = Found->second;
        return EFI_SUCCESS;
    }
    static EFI_STATUS Notify(const EFI_GUID*, EFI_SMM_NOTIFY_FN Function, void** Registration) {
        Current->Notified = Function;
        *Registration = Function == nullptr ? nullptr : Current;
        return EFI_SUCCESS;
    }

    static inline FakeServices* Current = nullptr;
    EFI_SMM_SYSTEM_TABLE2* Before;
    FakeServices* Outer;
    std::map<std::string, void*> Protocols;
};
