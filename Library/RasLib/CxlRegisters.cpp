#include "Library/RasLib/CxlRegisters.h"

#include "Include/PciDeviceState.h"
#include "Library/RasLib/Globals.h"
#include "Library/RasLib/MemoryBar.h"
#include "Library/RasLib/PciSegment.h"
#include "Library/RasLib/Trace.h"
#include "Platform/Hardware.h"

namespace {

constexpr UINT32 EXTENDED_HEADERS_MAX =
    (PCI_CONFIGURATION_SPACE_SIZE - PcieExtendedCapabilityHeader::FirstOffset) / sizeof(UINT32);

// A header up to here has no next one; a next offset from there on is none.
constexpr UINT32 LAST_EXTENDED_HEADER = 0x000FFFFF;
constexpr UINT32 NEXT_OFFSET_END = 0xFFF;
// Where bits 1:0 of a next offset go: they are reserved.
constexpr UINT32 NEXT_OFFSET_MASK = 0xFFC;

constexpr UINT64 DEVICE_CAPABILITIES_PAGE = 0x1000;
constexpr UINT64 DEVICE_CAPABILITIES_MAX =
    (DEVICE_CAPABILITIES_PAGE - CXL_DEVICE_CAPABILITY_HEADERS) / CXL_DEVICE_CAPABILITY_HEADER_SIZE;

// What is read where nothing answers.
constexpr UINT32 ALL_ONES = 0xFFFFFFFF;

UINT64 ConfigurationAddress(UINT32 PciAddress, UINT32 Offset) {
    return PciSegmentAddressOfPacked(PciAddress) + Offset;
}

// Whether the DVSEC at that offset is the CXL one with that ID.
bool IsCxlDvsec(UINT32 PciAddress, UINT32 Offset, UINT16 DvsecId) {
    if (Offset + CXL_DVSEC_HEADER_2 + sizeof(UINT32) > PCI_CONFIGURATION_SPACE_SIZE) {
        return false;
    }
    const UINT32 Header1 = PciSegmentRead32(ConfigurationAddress(PciAddress, Offset + CXL_DVSEC_HEADER_1));
    const UINT32 Header2 = PciSegmentRead32(ConfigurationAddress(PciAddress, Offset + CXL_DVSEC_HEADER_2));
    return DvsecHeader1::VendorId::Get(Header1) == CXL_DVSEC_VENDOR_ID && DvsecHeader2::Id::Get(Header2) == DvsecId;
}

// What a block of that identifier must have room for: the standard's fixed size, or as far as its array is read.
UINT64 LeastBlockSize(UINT8 BlockIdentifier) {
    return BlockIdentifier == CxlBlockComponentRegisters ? CXL_COMPONENT_REGISTERS_SIZE : DEVICE_CAPABILITIES_PAGE;
}

// The block that a register locator entry stands for.
bool ResolveRegisterBlock(UINT32 PciAddress, UINT32 Low, UINT32 High, CXL_REGISTER_BLOCK* Block) {
    const UINT8 BarIndicator = static_cast<UINT8>(CxlRegisterOffsetLow::BarIndicator::Get(Low));
    const UINT8 BlockIdentifier = static_cast<UINT8>(CxlRegisterOffsetLow::BlockIdentifier::Get(Low));
    const UINT64 Offset = static_cast<UINT64>(High) << 32 | (Low & CxlRegisterOffsetLow::Offset::Mask);
    MEMORY_BAR Bar;
    if (!GetMemoryBar(PciSegmentAddressOfPacked(PciAddress), BarIndicator, &Bar)) {
        TraceAs("RasGetRciepRegisterBlockAddress", DEBUG_ERROR,
                "%a: PciAddress 0x%08x BAR %d is no memory BAR, register block %d not used\n", PciAddress,
                BarIndicator, BlockIdentifier);
        return false;
    }
    if (Offset > Bar.Size || Bar.Size - Offset < LeastBlockSize(BlockIdentifier)) {
        TraceAs("RasGetRciepRegisterBlockAddress", DEBUG_ERROR,
                "%a: PciAddress 0x%08x BAR %d of 0x%lx bytes does not hold register block %d at 0x%lx\n", PciAddress,
                BarIndicator, Bar.Size, BlockIdentifier, Offset);
        return false;
    }
    *Block = {Bar.Base + Offset, Bar.Size - Offset};
    return true;
}

}  // namespace

UINT16 RasFindCxlDvsecCapability(UINT32 PciAddress, UINT16 DvsecId) {
    UINT32 Offset = PcieExtendedCapabilityHeader::FirstOffset;
    // A list that loops ends with the number of headers that there is room for.
    for (UINT32 Step = 0; Step < EXTENDED_HEADERS_MAX; Step++) {
        const UINT32 Header = PciSegmentRead32(ConfigurationAddress(PciAddress, Offset));
        if (PcieExtendedCapabilityHeader::Id::Get(Header) == PcieExtendedCapabilityDvsec &&
            IsCxlDvsec(PciAddress, Offset, DvsecId)) {
            return static_cast<UINT16>(Offset);
        }
        const UINT32 Next = PcieExtendedCapabilityHeader::Next::Get(Header);
        if (Header <= LAST_EXTENDED_HEADER || Next >= NEXT_OFFSET_END) {
            return 0;
        }
        Offset = Next & NEXT_OFFSET_MASK;
    }
    Trace(DEBUG_ERROR, "%a: PciAddress 0x%08x extended capabilities loop, DVSEC ID %d not found\n", PciAddress,
          DvsecId);
    return 0;
}

UINT32 RasGetRegisterBlockNumber(UINT32 PciAddress, UINT16 RegisterLocatorOffset) {
    const UINT32 Entries = RegisterLocatorOffset + UINT32{CXL_REGISTER_LOCATOR_ENTRIES};
    const UINT32 Length = DvsecHeader1::Length::Get(
        PciSegmentRead32(ConfigurationAddress(PciAddress, RegisterLocatorOffset + UINT32{CXL_DVSEC_HEADER_1})));
    if (Length < CXL_REGISTER_LOCATOR_ENTRIES || Entries >= PCI_CONFIGURATION_SPACE_SIZE) {
        return 0;
    }
    const UINT32 Listed = (Length - CXL_REGISTER_LOCATOR_ENTRIES) / CXL_REGISTER_LOCATOR_ENTRY_SIZE;
    const UINT32 Room = (PCI_CONFIGURATION_SPACE_SIZE - Entries) / CXL_REGISTER_LOCATOR_ENTRY_SIZE;
    return Listed < Room ? Listed : Room;
}

bool FindCxlRegisterBlock(UINT32 PciAddress, UINT8 BlockIdentifier, CXL_REGISTER_BLOCK* Block) {
    *Block = {};
    const UINT16 Locator = RasFindCxlDvsecCapability(PciAddress, CxlDvsecRegisterLocator);
    if (Locator == 0) {
        return false;
    }
    const UINT32 Count = RasGetRegisterBlockNumber(PciAddress, Locator);
    for (UINT32 At = 0; At < Count; At++) {
        const UINT64 Entry = ConfigurationAddress(
            PciAddress, Locator + CXL_REGISTER_LOCATOR_ENTRIES + At * CXL_REGISTER_LOCATOR_ENTRY_SIZE);
        const UINT32 Low = PciSegmentRead32(Entry);
        if (CxlRegisterOffsetLow::BlockIdentifier::Get(Low) == BlockIdentifier) {
            return ResolveRegisterBlock(PciAddress, Low, PciSegmentRead32(Entry + sizeof(UINT32)), Block);
        }
    }
    return false;
}

UINT64 RasGetRciepRegisterBlockAddress(UINT32 PciAddress, UINT8 BlockIdentifier) {
    CXL_REGISTER_BLOCK Block;
    FindCxlRegisterBlock(PciAddress, BlockIdentifier, &Block);
    return Block.Base;
}

UINT64 RasGetDpComponentRegisterAddress(UINT64 RcrbAddress) {
    if (RcrbAddress == 0) {
        Trace(DEBUG_ERROR, "%a: ERROR RcrbAddress == 0, aborting...\n");
        return 0;
    }
    const UINT32 Low = MmioRead32(RcrbAddress + CXL_RCRB_MEMBAR0_LOW);
    if (PciBar::SpaceIsIo::Get(Low)) {
        // A block that does not answer reads all ones, which looks like one too.
        Trace(DEBUG_ERROR, "[Error] This is IO space!!!");
        return 0;
    }
    const UINT64 Base = Low & ~PciBar::MemoryAttributes;
    if (!CxlRcrbMemBar0::Is64::Get(Low)) {
        return Base;
    }
    return static_cast<UINT64>(MmioRead32(RcrbAddress + CXL_RCRB_MEMBAR0_HIGH)) << 32 | Base;
}

UINT64 RasGetUpRcrbAddrOfRciep(UINT32 PciAddress) {
    const CXL_POLICY_DATA* Policy = mPlatformApeiData == nullptr ? nullptr : mPlatformApeiData->CxlPolicyData;
    if (Policy == nullptr || Policy->RcrbEntries == nullptr) {
        Trace(DEBUG_VERBOSE, "%a: the platform lists no RCRB\n");
        return 0;
    }
    for (UINT32 At = 0; At < Policy->RcrbCount; At++) {
        const CXL_RCRB_ENTRY& Entry = Policy->RcrbEntries[At];
        if (Entry.Segment != PackedPciAddress::Segment::Get(PciAddress) ||
            Entry.Bus != PackedPciAddress::Bus::Get(PciAddress) || Entry.DownstreamPortRcrb == 0) {
            continue;
        }
        const UINT64 Upstream = Entry.DownstreamPortRcrb + CXL_RCRB_UPSTREAM_OFFSET;
        // The first doubleword of a device's block is a capability header; without a CXL device it reads all ones.
        return MmioRead32(Upstream) == ALL_ONES ? 0 : Upstream;
    }
    Trace(DEBUG_VERBOSE, "%a: PciAddress 0x%08x has no RCRB\n", PciAddress);
    return 0;
}

UINT32 RasGetCxlCapabilityPointer(UINT64 CacheMemBase, UINT16 CxlCapId) {
    const UINT32 Header = MmioRead32(CacheMemBase);
    if (CxlCapabilityArrayHeader::Id::Get(Header) != CxlCapabilityArray ||
        CxlCapabilityArrayHeader::Version::Get(Header) != CXL_CAPABILITY_ARRAY_VERSION) {
        Trace(DEBUG_VERBOSE, "%a: no CXL capability array at 0x%lx, header 0x%08x\n", CacheMemBase, Header);
        return 0;
    }
    const UINT32 Count = CxlCapabilityArrayHeader::Count::Get(Header);
    for (UINT32 At = 1; At <= Count; At++) {
        const UINT32 Entry = MmioRead32(CacheMemBase + At * sizeof(UINT32));
        if (CxlCapabilityEntry::Id::Get(Entry) == CxlCapId) {
            const UINT32 Pointer = CxlCapabilityEntry::Pointer::Get(Entry);
            return Pointer % sizeof(UINT32) == 0 ? Pointer : 0;
        }
    }
    return 0;
}

UINT32 RasGetCxlDeviceCapabilityPointer(UINT64 MemoryDeviceBase, UINT16 DeviceCapId, UINT32* pLength) {
    if (pLength != nullptr) {
        *pLength = 0;
    }
    const UINT64 Array = MmioRead64(MemoryDeviceBase);
    if (CxlDeviceCapabilityArrayHeader::Id::Get(Array) != CxlDeviceCapabilityArray ||
        CxlDeviceCapabilityArrayHeader::Version::Get(Array) != CXL_DEVICE_CAPABILITY_ARRAY_VERSION) {
        Trace(DEBUG_VERBOSE, "%a: no CXL device capability array at 0x%lx, header 0x%016lx\n", MemoryDeviceBase,
              Array);
        return 0;
    }
    UINT64 Count = CxlDeviceCapabilityArrayHeader::Count::Get(Array);
    if (Count > DEVICE_CAPABILITIES_MAX) {
        Count = DEVICE_CAPABILITIES_MAX;
    }
    for (UINT64 At = 0; At < Count; At++) {
        const UINT64 Header =
            MemoryDeviceBase + CXL_DEVICE_CAPABILITY_HEADERS + At * CXL_DEVICE_CAPABILITY_HEADER_SIZE;
        if (CxlDeviceCapabilityIdVersion::Id::Get(MmioRead32(Header + CXL_DEVICE_CAPABILITY_ID_VERSION)) ==
            DeviceCapId) {
            if (pLength != nullptr) {
                *pLength = MmioRead32(Header + CXL_DEVICE_CAPABILITY_LENGTH);
            }
            return MmioRead32(Header + CXL_DEVICE_CAPABILITY_OFFSET);
        }
    }
    return 0;
}

BOOLEAN CxlRasCapErrCheck(UINT64 CacheMemBase, UINT32 RasCapOffset) {
    const UINT64 Ras = CacheMemBase + RasCapOffset;
    const UINT32 Uncorrectable =
        MmioRead32(Ras + CXL_RAS_UNCORRECTABLE_STATUS) & ~MmioRead32(Ras + CXL_RAS_UNCORRECTABLE_MASK);
    const UINT32 Correctable =
        MmioRead32(Ras + CXL_RAS_CORRECTABLE_STATUS) & ~MmioRead32(Ras + CXL_RAS_CORRECTABLE_MASK);
    return Uncorrectable != 0 || Correctable != 0 ? TRUE : FALSE;
}
