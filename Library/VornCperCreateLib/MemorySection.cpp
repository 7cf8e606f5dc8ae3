#include "Library/VornCperCreateLib/MemorySection.h"

#include "Library/RasLib/BankIndex.h"
#include "Library/VornCperCreateLib/CperRecord.h"
#include "Library/VornElogChipsetLib/DimmLocation.h"
#include "Library/VornElogChipsetLib/SmbiosMemoryData.h"

namespace {

constexpr UINT64 PHYSICAL_ADDRESS_MASK = 0x0000FFFFFFFFFFFF;

// The extended row byte takes the row bits that the row field has no room for.
using RowField = Field<UINT32, 15, 0>;
using ExtendedRow = Field<UINT32, 17, 16>;

// Which DIMM the error lies on.
struct DIMM_PLACE {
    UINT8 Socket;
    UINT8 Channel;  // UMC channel, counted through the dies of a socket
    UINT8 Dimm;
};

DIMM_PLACE PlaceOf(const NORMALIZED_ADDRESS& Address, const DIMM_INFO& DimmInfo) {
    return {Address.Socket, static_cast<UINT8>(Address.Die * 2 + Address.UmcChannel), DimmInfo.DimmOnCh};
}

void FillErrorStatus(UINT64 Mca, CPER_MEMORY_SECTION* Section) {
    UINT64 ErrorType = 0;
    if (UmcErrorCodeExt::IsBusParity(McaStatus::ErrorCodeExt::Get(Mca))) {
        ErrorType = CperErrorStatus::ERR_PARITY;
    }
    // The memory's type takes the place of the transfer's.
    if (McaStatus::CECC::Get(Mca) || McaStatus::UECC::Get(Mca)) {
        ErrorType = McaStatus::Poison::Get(Mca) ? CperErrorStatus::ERR_POISONED : CperErrorStatus::ERR_MEM;
    }
    if (ErrorType != 0) {
        Section->ErrorStatus = CperErrorStatus::ErrorType::Of(ErrorType) | CperErrorStatus::Data::Mask;
        Section->ValidationBits |= CperMemoryValid::ErrorStatus::Mask;
    }
}

UINT8 MemoryErrorTypeOf(UINT64 Mca) {
    if (UmcErrorCodeExt::IsBusParity(McaStatus::ErrorCodeExt::Get(Mca))) {
        return CperMemoryErrorType::PARITY;
    }
    if (McaStatus::UECC::Get(Mca)) {
        return CperMemoryErrorType::MULTI_BIT_ECC;
    }
    return McaStatus::CECC::Get(Mca) ? CperMemoryErrorType::SINGLE_BIT_ECC : CperMemoryErrorType::UNKNOWN;
}

// Bank, row and column, which only a translated address tells.
void FillCell(const DIMM_INFO& DimmInfo, CPER_MEMORY_SECTION* Section) {
    Section->Bank = static_cast<UINT16>(DimmInfo.BankGroup << 8 | DimmInfo.BankAddress);
    Section->Row = static_cast<UINT16>(RowField::Get(DimmInfo.Row));
    Section->Column = DimmInfo.Column;
    Section->Extended = static_cast<UINT8>(ExtendedRow::Get(DimmInfo.Row));
    // The row is not marked valid on its own: with the extended bits it is whole.
    Section->ValidationBits |= CperMemoryValid::BankGroup::Mask | CperMemoryValid::BankAddress::Mask |
                               CperMemoryValid::Column::Mask | CperMemoryValid::Extended::Mask;
}

void FillFruText(DIMM_PLACE Place, CPER_SECTION_DESCRIPTOR* Descriptor, const CHAR8* Caller) {
    const EFI_STATUS Status =
        VornGetDimmFruInfo(Place.Socket, Place.Channel, Place.Dimm, CPER_FRU_STRING_SIZE, Descriptor->FruString);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from VornGetDimmFruInfo\n", Status);
        return;
    }
    Descriptor->SecValidMask |= CPER_DESCRIPTOR_FRU_STRING_VALID;
}

void FillSmbiosHandles(DIMM_PLACE Place, CPER_MEMORY_SECTION* Section) {
    BOOLEAN IsFound = FALSE;
    ELOG_SMBIOS_TYPE16_RECORD* Array = nullptr;
    ELOG_SMBIOS_TYPE17_RECORD* Device = nullptr;
    const EFI_STATUS Status =
        VornGetSmbiosMemoryDeviceData(Place.Socket, Place.Channel, Place.Dimm, &IsFound, &Array, &Device);
    if (EFI_ERROR(Status) || IsFound == FALSE) {
        return;
    }
    Section->CardHandle = Array->Handle;
    Section->ModuleHandle = Device->Handle;
    Section->ValidationBits |= CperMemoryValid::CardHandle::Mask | CperMemoryValid::ModuleHandle::Mask;
}

}  // namespace

UINT64 VornCperGetMemorySectionLength() {
    return sizeof(CPER_MEMORY_SECTION);
}

UINT64 VornCperGetMemoryRecordLength() {
    return sizeof(CPER_RECORD) + VornCperGetMemorySectionLength();
}

EFI_STATUS VornCperCreateMemory(UINT64 Level, const RasMcaErrorInfo* pRasMcaErrorInfo, UINT32 BankIndex,
                                UINT64 SystemAddress, const NORMALIZED_ADDRESS* pNormalizedAddress,
                                const DIMM_INFO* pDimmInfo, BOOLEAN PreviousError, UINT64 CperLength,
                                CPER_RECORD* pCper) {
    if (pCper == nullptr || pRasMcaErrorInfo == nullptr || pNormalizedAddress == nullptr || pDimmInfo == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input pointers are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    if (!IsBankIndexInRange(BankIndex)) {
        return EFI_INVALID_PARAMETER;
    }
    if (CperLength < VornCperGetMemoryRecordLength()) {
        Trace(DEBUG_ERROR, "%a: ERROR CperLength %d < %d, aborting...\n", CperLength,
              VornCperGetMemoryRecordLength());
        return EFI_BUFFER_TOO_SMALL;
    }
    const MCA_BANK_ERROR_INFO& Bank = pRasMcaErrorInfo->McaBankErrorInfo[BankIndex];
    FillCperRecordFrontMachineCheck(Level, Bank, gCperSectionPlatformMemoryGuid, VornCperGetMemorySectionLength(),
                                    CperLength, PreviousError, pCper);
    const DIMM_PLACE Place = PlaceOf(*pNormalizedAddress, *pDimmInfo);
    FillFruText(Place, &pCper->Descriptor, __func__);

    CPER_MEMORY_SECTION& Section = *CperSection<CPER_MEMORY_SECTION>(pCper);
    FillErrorStatus(Bank.McaStatus, &Section);
    Section.PhysicalAddress = SystemAddress;
    Section.PhysicalAddressMask = PHYSICAL_ADDRESS_MASK;
    Section.Node = Place.Socket;
    Section.Card = Place.Channel;
    Section.Module = Place.Dimm;
    Section.MemoryErrorType = MemoryErrorTypeOf(Bank.McaStatus);
    Section.RankNumber = pDimmInfo->RankOnDimm;
    Section.ValidationBits |= CperMemoryValid::PhysicalAddress::Mask | CperMemoryValid::PhysicalAddressMask::Mask |
                              CperMemoryValid::Node::Mask | CperMemoryValid::Card::Mask |
                              CperMemoryValid::Module::Mask | CperMemoryValid::MemoryErrorType::Mask |
                              CperMemoryValid::RankNumber::Mask;
    if (DimmInfoValid::AddressTranslationData::Get(pDimmInfo->ValidBits)) {
        FillCell(*pDimmInfo, &Section);
    }
    FillSmbiosHandles(Place, &Section);

    Trace(Level, "%a: Node %d Card %d Module %d rank %d address 0x%016lx error status 0x%x type %d valid 0x%lx\n",
          Section.Node, Section.Card, Section.Module, Section.RankNumber, SystemAddress, Section.ErrorStatus,
          Section.MemoryErrorType, Section.ValidationBits);
    return EFI_SUCCESS;
}
