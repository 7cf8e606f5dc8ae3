// The PCIe domain: functions and devices.
#include "Include/CxlRegisters.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogPolicyLib/Pcie/DeviceState.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/Storm/StormCount.h"
#include "Library/VornElogPolicyLib/Storm/StormRecord.h"

namespace {

enum STORM_CLASS : UINT8 {
    StormLegacyPci,
    StormDpcRpPio,
    StormPcieFatal,
    StormPcieNonFatal,
    StormPcieCorrectable,
    StormCxlFatal,
    StormCxlNonFatal,
    StormCxlCorrectable,
    STORM_CLASSES,
};

// What a state shows of each class: the bits that another error must share to be of the same kind; 0 when the class
// was not detected.
struct CLASS_BITS {
    UINT32 Of[STORM_CLASSES];
};

UINT32 LegacyBits(const PCI_DEVICE_STATE& State) {
    const UINT16 Command = CapturedRegister16(State.PciHeader, PCI_COMMAND);
    return (State.LegacyPci.DetectedSerr != FALSE ? Command & PciCommand::SerrEnable : 0) |
           (State.LegacyPci.DetectedPerr != FALSE ? Command & PciCommand::ParityErrorResponse : 0);
}

CLASS_BITS ClassBits(const PCI_DEVICE_STATE& State) {
    const auto Aer = [&](UINTN Offset) { return CapturedRegister32(State.AerCapability, Offset); };
    const auto Ras = [&](UINTN Offset) { return State.Cxl.RasCapability[Offset / sizeof(UINT32)]; };
    const auto If = [](UINT8 Detected, UINT32 Bits) { return Detected != FALSE ? Bits : 0; };
    const UINT32 Pcie = Aer(AER_UNCORRECTABLE_STATUS) & ~Aer(AER_UNCORRECTABLE_MASK);
    const UINT32 PcieFatal = Aer(AER_UNCORRECTABLE_SEVERITY);
    const UINT32 Cxl = Ras(CXL_RAS_UNCORRECTABLE_STATUS) & ~Ras(CXL_RAS_UNCORRECTABLE_MASK);
    const UINT32 CxlFatal = Ras(CXL_RAS_UNCORRECTABLE_SEVERITY);
    const auto& PcieStatus = State.Pcie.ErrorStatus;
    const auto& CxlStatus = State.Cxl.ErrorStatus;
    CLASS_BITS Bits;
    Bits.Of[StormLegacyPci] = LegacyBits(State);
    Bits.Of[StormDpcRpPio] = If(PcieStatus.DetectedRpPioFatal, 1);
    Bits.Of[StormPcieFatal] = If(PcieStatus.DetectedFatal, Pcie & PcieFatal);
    Bits.Of[StormPcieNonFatal] = If(PcieStatus.DetectedNonFatal, Pcie & ~PcieFatal);
    Bits.Of[StormPcieCorrectable] =
        If(PcieStatus.DetectedCorrectable, Aer(AER_CORRECTABLE_STATUS) & ~Aer(AER_CORRECTABLE_MASK));
    Bits.Of[StormCxlFatal] = If(CxlStatus.DetectedFatal, Cxl & CxlFatal);
    Bits.Of[StormCxlNonFatal] = If(CxlStatus.DetectedNonFatal, Cxl & ~CxlFatal);
    Bits.Of[StormCxlCorrectable] =
        If(CxlStatus.DetectedCorrectable, Ras(CXL_RAS_CORRECTABLE_STATUS) & ~Ras(CXL_RAS_CORRECTABLE_MASK));
    return Bits;
}

// The CXL protocol class that takes an error away from a PCIe class.
STORM_CLASS CxlClassOf(STORM_CLASS Class) {
    switch (Class) {
        case StormPcieFatal:
            return StormCxlFatal;
        case StormPcieNonFatal:
            return StormCxlNonFatal;
        case StormPcieCorrectable:
            return StormCxlCorrectable;
        default:
            return STORM_CLASSES;
    }
}

struct CLASS_COUNTS {
    UINT32 Of[STORM_CLASSES];
};

void CountClasses(const CLASS_BITS& Now, const PCI_DEVICE_STATE& Then, CLASS_COUNTS* pCounts) {
    const CLASS_BITS Earlier = ClassBits(Then);
    const auto IsShared = [&](UINTN Class) { return (Now.Of[Class] & Earlier.Of[Class]) != 0; };
    for (UINTN Class = 0; Class < STORM_CLASSES; Class++) {
        const STORM_CLASS CxlClass = CxlClassOf(static_cast<STORM_CLASS>(Class));
        if (IsShared(Class) && (CxlClass == STORM_CLASSES || !IsShared(CxlClass))) {
            pCounts->Of[Class]++;
        }
    }
}

// Which function's or device's errors are counted together.
struct SCOPE {
    PCI_SBDF At;
    bool IsSingleFunction;

    bool Holds(const PCI_SBDF& Other) const {
        return Other.Seg == At.Seg && Other.Bus == At.Bus && Other.Dev == At.Dev &&
               (!IsSingleFunction || Other.Func == At.Func);
    }
};

bool HasPortType(const PCI_DEVICE_STATE& State) {
    const PCIE_CHARACTERISTICS& Is = State.Pcie.Characteristics;
    return (Is.IsRootPort | Is.IsRootComplexEventCollector | Is.IsRootComplexIntegratedEndpoint |
            Is.IsSwitchUpstreamPort | Is.IsSwitchDownstreamPort | State.Pcie.IsPcieToPciBridge) != FALSE;
}

SCOPE ScopeOf(const PCI_SBDF& At, const PCI_DEVICE_STATE& State, bool IsPcieOrCxlError, const CHAR8* Caller) {
    const bool IsPort = IsPcieOrCxlError && (State.IsPcie != FALSE || State.Cxl.IsCxl != FALSE) && HasPortType(State);
    if (IsPort || PciHeaderType::MultiFunction::Get(State.PciHeader[PCI_HEADER_TYPE]) == 0) {
        TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: Override to scan for single function only\n");
        return {At, true};
    }
    return {At, false};
}

// The entries of this kind inside the scope. An entry of a kind that carries a state is skipped without it.
template <class Visitor>
void ForEachEntryInScope(STORM_RECORD_KIND Kind, const SCOPE& Scope, Visitor Visit) {
    ForEachStormEntry(mPrivateDataVornElogPolicyLib.SmiStormQueue, [&](const SMI_STORM_QUEUE_ENTRY& Entry) {
        if (StormRecordKind(EntryRecord(Entry)) == Kind && Scope.Holds(StormEntryFunction(Entry)) &&
            (Entry.IsPciDeviceStateValid != FALSE || Kind == StormRecordPciComponent)) {
            Visit(Entry);
        }
    });
}

EFI_STATUS CurrentState(const PCI_SBDF& At, PCI_DEVICE_STATE** ppPciDeviceState, const CHAR8* Caller) {
    const EFI_STATUS Status = VornElogRetrievePciDeviceState(At.Seg, At.Bus, At.Dev, At.Func, ppPciDeviceState);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r unable to retrieve PCIe device state ptr for SBDF %04X:%02X:%02X.%1X, aborting...\n",
                Status, At.Seg, At.Bus, At.Dev, At.Func);
    }
    return Status;
}

UINT32 StopCountThreshold(const CHAR8* Caller) {
    UINT32 StopCount = 0;
    UINT32 StopTime = 0;
    const EFI_STATUS Status = VornElogPolicyLibGetSmiStormPciThresholdData(&StopCount, &StopTime);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r unable to retrieve SMI Storm PCI threshold scaling data, aborting...\n", Status);
        return 0xFFFFFFFF;
    }
    return StopCount;
}

// Marks the state with the classes that reached the stop count; false when there is none.
bool MarkClasses(const CLASS_COUNTS& Counts, UINT32 StopCount, const SCOPE& Scope, PCI_DEVICE_STATE* pState) {
    PCIE_SMI_STORM& Pcie = pState->Pcie.SmiStorm;
    CXL_SMI_STORM& Cxl = pState->Cxl.SmiStorm;
    const struct {
        STORM_CLASS Class;
        UINT8* pFlag;
        UINT8* pUncorrected;  // NULL for a class that raises no severity
    } MARKS[] = {
        {StormLegacyPci, &pState->LegacyPci.SmiStorm, nullptr},
        {StormDpcRpPio, &Pcie.DpcRpPio, &Pcie.UncorrectedError},
        {StormPcieFatal, &Pcie.Fatal, &Pcie.UncorrectedError},
        {StormPcieNonFatal, &Pcie.NonFatal, &Pcie.UncorrectedError},
        {StormPcieCorrectable, &Pcie.Correctable, nullptr},
        {StormCxlFatal, &Cxl.ProtocolFatal, &Cxl.ProtocolUncorrectedError},
        {StormCxlNonFatal, &Cxl.ProtocolNonFatal, &Cxl.ProtocolUncorrectedError},
        {StormCxlCorrectable, &Cxl.ProtocolCorrectable, nullptr},
    };
    bool IsStorm = false;
    for (const auto& Mark : MARKS) {
        if (Counts.Of[Mark.Class] < StopCount) {
            continue;
        }
        IsStorm = true;
        *Mark.pFlag = TRUE;
        if (Mark.pUncorrected != nullptr) {
            *Mark.pUncorrected = TRUE;
        }
    }
    const UINT8 AllFunctions = Scope.IsSingleFunction ? FALSE : TRUE;
    if ((Pcie.DpcRpPio | Pcie.Fatal | Pcie.NonFatal | Pcie.Correctable) != FALSE) {
        Pcie.Pcie = TRUE;
        Pcie.AllFunctions = AllFunctions;
    }
    if ((Cxl.ProtocolFatal | Cxl.ProtocolNonFatal | Cxl.ProtocolCorrectable) != FALSE) {
        Cxl.Protocol = TRUE;
        Cxl.ProtocolAllFunctions = AllFunctions;
    }
    return IsStorm;
}

bool CountByClass(STORM_RECORD_KIND Kind, const SCOPE& Scope, UINT32 StopCount, PCI_DEVICE_STATE* pState,
                  const CHAR8* Caller) {
    const CLASS_BITS Now = ClassBits(*pState);
    CLASS_COUNTS Counts{};
    ForEachEntryInScope(
        Kind, Scope, [&](const SMI_STORM_QUEUE_ENTRY& Entry) { CountClasses(Now, Entry.PciDeviceState, &Counts); });
    TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: Legacy %d RpPio %d PCIe Fatal %d Non-Fatal %d Correctable %d CXL Fatal %d Non-Fatal %d "
            "Correctable %d stop count %d\n",
            Counts.Of[StormLegacyPci], Counts.Of[StormDpcRpPio], Counts.Of[StormPcieFatal],
            Counts.Of[StormPcieNonFatal], Counts.Of[StormPcieCorrectable], Counts.Of[StormCxlFatal],
            Counts.Of[StormCxlNonFatal], Counts.Of[StormCxlCorrectable], StopCount);
    return MarkClasses(Counts, StopCount, Scope, pState);
}

// A PCI component record says nothing of classes: its severity tells what is alike.
bool CountBySeverity(const SCOPE& Scope, UINT32 Severity, UINT32 StopCount, PCI_DEVICE_STATE* pState) {
    UINT32 Count = 0;
    ForEachEntryInScope(StormRecordPciComponent, Scope, [&](const SMI_STORM_QUEUE_ENTRY& Entry) {
        Count += EntryRecord(Entry)->Descriptor.Severity == Severity ? 1 : 0;
    });
    if (Count < StopCount) {
        return false;
    }
    pState->LegacyPci.SmiStorm = TRUE;
    return true;
}

}  // namespace

BOOLEAN VornElogSmmCheckPciSmiStormPostProcess(const EFI_GUID* pErrorTypeGuid, UINT8 Segment, UINT8 Bus, UINT8 Device,
                                               UINT8 Function, UINT32 Severity) {
    const STORM_RECORD_KIND Kind =
        pErrorTypeGuid == nullptr ? StormRecordCxlComponent : StormSectionKind(*pErrorTypeGuid);
    if (Kind == StormRecordCxlComponent) {
        Trace(DEBUG_ERROR, "%a: ERROR pErrorTypeGuid is a CXL Component event record type, aborting...\n");
        return FALSE;
    }
    const QUEUE* pQueue = mPrivateDataVornElogPolicyLib.SmiStormQueue;
    if (pQueue == nullptr || pQueue->pHead == nullptr) {
        return FALSE;
    }
    const PCI_SBDF At{Segment, Bus, Device, Function};
    const UINT32 StopCount = StopCountThreshold(__func__);
    PCI_DEVICE_STATE* pState = nullptr;
    if (EFI_ERROR(CurrentState(At, &pState, __func__))) {
        return FALSE;
    }
    if (Kind == StormRecordPciComponent) {
        return CountBySeverity(ScopeOf(At, *pState, false, __func__), Severity, StopCount, pState) ? TRUE : FALSE;
    }
    if (Kind != StormRecordPcie && Kind != StormRecordCxlProtocol) {
        Trace(DEBUG_ERROR, "%a: ERROR section type %g is not supported, aborting...\n", pErrorTypeGuid);
        return FALSE;
    }
    return CountByClass(Kind, ScopeOf(At, *pState, true, __func__), StopCount, pState, __func__) ? TRUE : FALSE;
}

BOOLEAN VornElogSmmCheckCxlComponentSmiStormPostProcess(const EFI_GUID* pErrorTypeGuid, UINT8 Segment, UINT8 Bus,
                                                        UINT8 Device, UINT8 Function, UINT8 EventRecordType) {
    if (pErrorTypeGuid == nullptr || StormSectionKind(*pErrorTypeGuid) != StormRecordCxlComponent ||
        EventRecordType > CxlEventLogFatal) {
        Trace(DEBUG_ERROR, "%a: ERROR no CXL Component event record type, aborting...\n");
        return FALSE;
    }
    const PCI_SBDF At{Segment, Bus, Device, Function};
    PCI_DEVICE_STATE* pState = nullptr;
    if (EFI_ERROR(CurrentState(At, &pState, __func__))) {
        return FALSE;
    }
    if (pState->Cxl.IsCxl == FALSE) {
        Trace(DEBUG_ERROR, "%a: ERROR current device does not support CXL @ SBDF %04X:%02X:%02X.%1X, aborting...\n",
              Segment, Bus, Device, Function);
        return FALSE;
    }
    const UINT32 StopCount = StopCountThreshold(__func__);
    UINT32 Counts[CXL_EVENT_LOGS] = {};
    ForEachEntryInScope(StormRecordCxlComponent, ScopeOf(At, *pState, true, __func__),
                        [&](const SMI_STORM_QUEUE_ENTRY& Entry) { Counts[StormEntryEventSeverity(Entry)]++; });
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel,
          "%a: event severity %d: Informational %d Warning %d Failure %d Fatal %d stop count %d\n", EventRecordType,
          Counts[CxlEventLogInformational], Counts[CxlEventLogWarning], Counts[CxlEventLogFailure],
          Counts[CxlEventLogFatal], StopCount);
    if (Counts[EventRecordType] < StopCount) {
        return FALSE;
    }
    CXL_SMI_STORM& Storm = pState->Cxl.SmiStorm;
    Storm.ComponentSeverities = static_cast<UINT8>(Storm.ComponentSeverities | 1 << EventRecordType);
    if (EventRecordType >= CxlEventLogFailure) {
        Storm.ComponentFatalOrFailure = TRUE;
    }
    return TRUE;
}
