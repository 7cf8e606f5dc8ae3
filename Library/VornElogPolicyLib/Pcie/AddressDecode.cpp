#include "Library/VornElogPolicyLib/Pcie/AddressDecode.h"

#include "Library/RasLib/MemoryBar.h"
#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"

namespace {

struct MEMORY_REQUEST {
    UINT32 FmtType;
    TLP_HEADER_FMT_TYPE Kind;
    bool Has64BitAddress;
};

constexpr MEMORY_REQUEST MemoryRequests[] = {
    {TlpHeader::MemWr32, TlpMemoryWrite, false},      {TlpHeader::MemWr64, TlpMemoryWrite, true},
    {TlpHeader::MemRd32, TlpMemoryRead, false},       {TlpHeader::MemRd64, TlpMemoryRead, true},
    {TlpHeader::MemRd32Locked, TlpMemoryRead, false}, {TlpHeader::MemRd64Locked, TlpMemoryRead, true},
};

// NULL for any other request.
const MEMORY_REQUEST* FindMemoryRequest(const UINT32* pHeaderLog) {
    const UINT32 FmtType = TlpHeader::FmtType::Get(pHeaderLog[0]);
    for (const MEMORY_REQUEST& Request : MemoryRequests) {
        if (Request.FmtType == FmtType) {
            return &Request;
        }
    }
    return nullptr;
}

// Whether one of the first Count base address registers decodes the address.
bool DoBaseAddressesDecode(const PCI_SBDF& Where, UINT8 Count, UINT64 Address) {
    const UINT64 Function = PciFunctionAddress(Where, 0);
    SIZED_MEMORY_BAR Bar;
    for (UINT8 Index = 0; Index < Count; Index = static_cast<UINT8>(Index + (Bar.Is64 ? 2 : 1))) {
        if (SizeMemoryBar(Function, Index, Count, &Bar) && Bar.SizeMask != 0 &&
            (Address & Bar.SizeMask) == Bar.Base) {
            return true;
        }
    }
    return false;
}

// A bridge's window from its base and limit registers (PCI-to-PCI Bridge Architecture 1.2, sections 3.2.5.8 and
// 3.2.5.9). A base above the limit closes it.
bool DoesWindowDecode(UINT32 BaseAndLimit, UINT32 BaseUpper, UINT32 LimitUpper, UINT64 Address) {
    const auto BaseRegister = static_cast<UINT16>(BaseAndLimit);
    const auto LimitRegister = static_cast<UINT16>(BaseAndLimit >> 16);
    const UINT64 Base =
        static_cast<UINT64>(BaseUpper) << 32 | static_cast<UINT64>(PciMemoryWindow::Address::Get(BaseRegister))
                                                   << PciMemoryWindow::UnitShift;
    const UINT64 Limit = static_cast<UINT64>(LimitUpper) << 32 |
                         static_cast<UINT64>(PciMemoryWindow::Address::Get(LimitRegister))
                             << PciMemoryWindow::UnitShift |
                         PciMemoryWindow::UnitMask;
    return Base <= Address && Address <= Limit;
}

}  // namespace

TLP_HEADER_FMT_TYPE VornElogGetTlpHeaderFmtType(const PCI_DEVICE_STATE* pPciDeviceState, const UINT32* pHeaderLog) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return TlpOther;
    }
    if (pHeaderLog == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pHeaderLog == NULL, aborting...\n");
        return TlpOther;
    }
    const MEMORY_REQUEST* const pRequest = FindMemoryRequest(pHeaderLog);
    return pRequest == nullptr ? TlpOther : pRequest->Kind;
}

BOOLEAN VornElogSmmCheckMemAccessForPcieDevType0Header(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT64 Address) {
    return DoBaseAddressesDecode({Seg, Bus, Dev, Func}, PCI_TYPE0_BASE_ADDRESSES, Address);
}

BOOLEAN VornElogSmmCheckMemAccessForPcieDevType1Header(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT64 Address) {
    const PCI_SBDF Where{Seg, Bus, Dev, Func};
    if (DoBaseAddressesDecode(Where, PCI_TYPE1_BASE_ADDRESSES, Address)) {
        return TRUE;
    }
    // A kind that the window cannot have is that of a bridge which answers no more.
    const UINT32 Memory = PciSegmentRead32(PciFunctionAddress(Where, PCI_MEMORY_BASE));
    if (PciMemoryWindow::Kind::Get(static_cast<UINT16>(Memory)) == PciMemoryWindow::Kind32 &&
        DoesWindowDecode(Memory, 0, 0, Address)) {
        return TRUE;
    }
    const UINT32 Prefetchable = PciSegmentRead32(PciFunctionAddress(Where, PCI_PREFETCHABLE_MEMORY_BASE));
    switch (PciMemoryWindow::Kind::Get(static_cast<UINT16>(Prefetchable))) {
        case PciMemoryWindow::Kind32:
            return DoesWindowDecode(Prefetchable, 0, 0, Address);
        case PciMemoryWindow::Kind64:
            return DoesWindowDecode(
                Prefetchable, PciSegmentRead32(PciFunctionAddress(Where, PCI_PREFETCHABLE_BASE_UPPER)),
                PciSegmentRead32(PciFunctionAddress(Where, PCI_PREFETCHABLE_LIMIT_UPPER)), Address);
        default:
            return FALSE;
    }
}

BOOLEAN VornElogSmmCheckMemAccessForPcieDev(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, const UINT32* pHeaderLog) {
    if (pHeaderLog == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pHeaderLog == NULL, aborting...\n");
        return FALSE;
    }
    const MEMORY_REQUEST* const pRequest = FindMemoryRequest(pHeaderLog);
    if (pRequest == nullptr) {
        return FALSE;
    }
    const UINT64 Address =
        pRequest->Has64BitAddress ? static_cast<UINT64>(pHeaderLog[2]) << 32 | pHeaderLog[3] : pHeaderLog[2];
    const UINT8 HeaderType = PciSegmentRead8(PciSegmentAddress(Seg, Bus, Dev, Func, PCI_HEADER_TYPE));
    switch (PciHeaderType::Layout::Get(HeaderType)) {
        case PciHeaderType::Type0:
            return VornElogSmmCheckMemAccessForPcieDevType0Header(Seg, Bus, Dev, Func, Address);
        case PciHeaderType::Type1:
            return VornElogSmmCheckMemAccessForPcieDevType1Header(Seg, Bus, Dev, Func, Address);
        default:
            return FALSE;
    }
}
