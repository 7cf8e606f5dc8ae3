#include "Library/VornElogPolicyLib/Pcie/PcieUceCount.h"

#include "Include/PcieUceCounter.h"
#include "Library/RasLib/Assert.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/PciConfiguration.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

namespace {

PCIE_UCE_COUNTER_NODE* FindCounter(UINT8 Bus, UINT8 Dev, UINT8 Func) {
    LIST_ENTRY* const pList = mPrivateDataVornElogPolicyLib.pPcieUceCounterList;
    if (pList == nullptr) {
        return nullptr;
    }
    for (LIST_ENTRY* pLink = pList->ForwardLink; pLink != pList; pLink = pLink->ForwardLink) {
        PCIE_UCE_COUNTER_NODE* const pNode = PcieUceCounter(pLink);
        if (pNode->Signature != PCIE_UCE_COUNTER_SIGNATURE) {
            AssertFailed("CR has Bad Signature");
        }
        if (pNode->Bus == Bus && pNode->Device == Dev && pNode->Function == Func) {
            return pNode;
        }
    }
    return nullptr;
}

void ClearLowBits(const PCI_SBDF& At, UINT8 PcieCapabilityOffset, UINT16 Register, UINT16 Bits) {
    const UINT64 Address = PciFunctionAddress(At, static_cast<UINT16>(PcieCapabilityOffset + Register));
    PciSegmentWrite16(Address, static_cast<UINT16>(PciSegmentRead16(Address) & ~Bits));
}

}  // namespace

EFI_STATUS IncrementPcieUceCount(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func) {
    const UINT64 Level = mPrivateDataVornElogPolicyLib.SerDbgLevel;
    PCIE_UCE_COUNTER_NODE* pPcieUceCounter = FindCounter(Bus, Dev, Func);
    if (pPcieUceCounter != nullptr) {
        pPcieUceCounter->UceCount++;
        Trace(Level, "%a: SBDF %04X:%02X:%02X.%1X UceCount %d\n", Seg, Bus, Dev, Func, pPcieUceCounter->UceCount);
        return EFI_SUCCESS;
    }
    if (mPrivateDataVornElogPolicyLib.pPcieUceCounterList == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pPcieUceCounterList == NULL, aborting...\n");
        return EFI_NOT_FOUND;
    }
    const EFI_STATUS Status = AllocateZeroedRuntimeData(sizeof(PCIE_UCE_COUNTER_NODE), &pPcieUceCounter);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR pPcieUceCounter mem allocation returned NULL, aborting...\n");
        return Status;
    }
    pPcieUceCounter->Signature = PCIE_UCE_COUNTER_SIGNATURE;
    pPcieUceCounter->Bus = Bus;
    pPcieUceCounter->Device = Dev;
    pPcieUceCounter->Function = Func;
    pPcieUceCounter->UceCount = 1;
    InsertTailList(mPrivateDataVornElogPolicyLib.pPcieUceCounterList, &pPcieUceCounter->Link);
    Trace(Level, "%a: SBDF %04X:%02X:%02X.%1X UceCount 1\n", Seg, Bus, Dev, Func);
    return EFI_SUCCESS;
}

PCIE_UCE_LIMIT_STATUS GetPcieUceLimitStatus(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, BOOLEAN ClearCount) {
    PCIE_UCE_COUNTER_NODE* const pPcieUceCounter = FindCounter(Bus, Dev, Func);
    if (pPcieUceCounter == nullptr) {
        return PcieUceUnderLimit;
    }
    if (ClearCount != FALSE) {
        pPcieUceCounter->UceCount = 0;
    }
    const UINT32 Count = pPcieUceCounter->UceCount;
    const UINT32 Limit = mPrivateDataVornElogPolicyLib.PcieUceLimit;
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: SBDF %04X:%02X:%02X.%1X UceCount %d PcieUceLimit %d\n", Seg,
          Bus, Dev, Func, Count, Limit);
    if (Count < Limit) {
        return PcieUceUnderLimit;
    }
    return Count == Limit ? PcieUceAtLimit : PcieUceOverLimit;
}

void CheckForUceLimit(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, BOOLEAN IsRootPort,
                      BOOLEAN IsRootComplexEventCollector, UINT8 PcieCapabilityOffset) {
    if (GetPcieUceLimitStatus(Seg, Bus, Dev, Func, FALSE) == PcieUceUnderLimit) {
        return;
    }
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: SBDF %04X:%02X:%02X.%1X UCE limit reached\n", Seg, Bus, Dev,
          Func);
    const PCI_SBDF At{Seg, Bus, Dev, Func};
    ClearLowBits(At, PcieCapabilityOffset, PCIE_DEVICE_CONTROL,
                 PcieDeviceControl::CorrectableErrorReportingEnable |
                     PcieDeviceControl::NonFatalErrorReportingEnable | PcieDeviceControl::FatalErrorReportingEnable);
    if (IsRootPort != FALSE || IsRootComplexEventCollector != FALSE) {
        ClearLowBits(At, PcieCapabilityOffset, PCIE_ROOT_CONTROL,
                     PcieRootControl::SystemErrorOnCorrectableErrorEnable |
                         PcieRootControl::SystemErrorOnNonFatalErrorEnable |
                         PcieRootControl::SystemErrorOnFatalErrorEnable);
    }
}
