// Every service member that the driver can call, by name, and how it is made to fail.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Simulator/Configuration.h"

namespace Simulator {

// The dispatchers' members carry their protocol's name because they are called alike.
#define SERVICE_MEMBERS(MEMBER)                                                                    \
    MEMBER(AllocatePool, "AllocatePool")                                                           \
    MEMBER(FreePool, "FreePool")                                                                   \
    MEMBER(LocateProtocol, "LocateProtocol")                                                       \
    MEMBER(SmmAllocatePool, "SmmAllocatePool")                                                     \
    MEMBER(SmmFreePool, "SmmFreePool")                                                             \
    MEMBER(SmmStartupThisAp, "SmmStartupThisAp")                                                   \
    MEMBER(SmmInstallProtocolInterface, "SmmInstallProtocolInterface")                             \
    MEMBER(SmmUninstallProtocolInterface, "SmmUninstallProtocolInterface")                         \
    MEMBER(SmmRegisterProtocolNotify, "SmmRegisterProtocolNotify")                                 \
    MEMBER(SmmLocateProtocol, "SmmLocateProtocol")                                                 \
    MEMBER(SmmHandleProtocol, "SmmHandleProtocol")                                                 \
    MEMBER(SmmLocateHandle, "SmmLocateHandle")                                                     \
    MEMBER(SmiHandlerRegister, "SmiHandlerRegister")                                               \
    MEMBER(SmiHandlerUnRegister, "SmiHandlerUnRegister")                                           \
    MEMBER(InSmm, "InSmm")                                                                         \
    MEMBER(GetSmstLocation, "GetSmstLocation")                                                     \
    MEMBER(GetProcessorInfo, "GetProcessorInfo")                                                   \
    MEMBER(WhoAmI, "WhoAmI")                                                                       \
    MEMBER(SwDispatchRegister, "SwDispatch2.Register")                                             \
    MEMBER(SwDispatchUnRegister, "SwDispatch2.UnRegister")                                         \
    MEMBER(FchSwDispatchRegister, "FchSwDispatch2.Register")                                       \
    MEMBER(FchSwDispatchUnRegister, "FchSwDispatch2.UnRegister")                                   \
    MEMBER(ApuRasDispatchRegister, "FchApuRasDispatch.Register")                                   \
    MEMBER(ApuRasDispatchUnRegister, "FchApuRasDispatch.UnRegister")                               \
    MEMBER(SearchMcaError, "SearchMcaError")                                                       \
    MEMBER(GetAllLocalSmiStatus, "GetAllLocalSmiStatus")                                           \
    MEMBER(DramToNormalized, "DramToNormalized")                                                   \
    MEMBER(NormalizedToDimmAddress, "NormalizedToDimmAddress")                                     \
    MEMBER(RasSmmExitType, "RasSmmExitType")                                                       \
    MEMBER(GetSmmSaveState, "GetSmmSaveState")                                                     \
    MEMBER(SetMcaCloakCfg, "SetMcaCloakCfg")                                                       \
    MEMBER(ClrMcaStatus, "ClrMcaStatus")                                                           \
    MEMBER(SetMcaThreshold, "SetMcaThreshold")                                                     \
    MEMBER(SetMcaThresholdMap, "SetMcaThresholdMap")                                               \
    MEMBER(SetSmiTrigIoCycle, "SetSmiTrigIoCycle")                                                 \
    MEMBER(DisableMcaThreshold, "DisableMcaThreshold")                                             \
    MEMBER(DisableMcaTransparentErrorLogging, "DisableMcaTransparentErrorLogging")                 \
    MEMBER(GetPhysicalCpuInfo, "GetPhysicalCpuInfo")                                               \
    MEMBER(SetRasDiagnosticModeData, "SetRasDiagnosticModeData")                                   \
    MEMBER(CorrectedErrorCounterPerDimm, "CorrectedErrorCounterPerDimm")                           \
    MEMBER(CorrectedErrorCounterIndividual, "CorrectedErrorCounterIndividual")                     \
    MEMBER(CorrectedErrorCounterPerDimmDisable, "CorrectedErrorCounterPerDimmDisable")             \
    MEMBER(MapSymbolToDramDevice, "MapSymbolToDramDevice")                                         \
    MEMBER(Get8, "Get8")                                                                           \
    MEMBER(GetBool, "GetBool")                                                                     \
    MEMBER(SetTalvoCfg8, "SetTalvoCfg8")                                                           \
    MEMBER(PspMboxRasEinj, "PspMboxRasEinj")                                                       \
    MEMBER(FabricRegisterAccRead, "FabricRegisterAccRead")                                         \
    MEMBER(GetAttributeValue, "GetAttributeValue")                                                 \
    MEMBER(GetMfgModeType, "GetMfgModeType")                                                       \
    MEMBER(LogBmcData, "LogBmcData")                                                               \
    MEMBER(GetPostMessageCodes, "GetPostMessageCodes")                                             \
    MEMBER(GetIpmiTransportProtocol, "GetIpmiTransportProtocol")                                   \
    MEMBER(GetBmcErrorCount, "GetBmcErrorCount")                                                   \
    MEMBER(SendBmcData, "SendBmcData")                                                             \
    MEMBER(LogMemoryHealthData, "LogMemoryHealthData")                                             \
    MEMBER(GetSelRecords, "GetSelRecords")                                                         \
    MEMBER(ClearSelRecords, "ClearSelRecords")                                                     \
    MEMBER(DisplaySelRecords, "DisplaySelRecords")                                                 \
    MEMBER(SendConsolidatedOemCommand, "SendConsolidatedOemCommand")                               \
    MEMBER(GetMemoryArrayPtr, "GetMemoryArrayPtr")                                                 \
    MEMBER(GetSlotInfoPtr, "GetSlotInfoPtr")                                                       \
    MEMBER(ElogIsApeiOsLoaded, "ElogIsApeiOsLoaded")                                               \
    MEMBER(ElogClearGhes, "ElogClearGhes")                                                         \
    MEMBER(ElogLogCper, "ElogLogCper")                                                             \
    MEMBER(ElogLogPageRetire, "ElogLogPageRetire")                                                 \
    MEMBER(ElogSignalSci, "ElogSignalSci")                                                         \
    MEMBER(ElogSignalNmi, "ElogSignalNmi")                                                         \
    MEMBER(KyrPostPackageRepairSupported, "KyrPostPackageRepairSupported")                         \
    MEMBER(VornPostPackageCreateEntry, "VornPostPackageCreateEntry")                               \
    MEMBER(VornPostPackageRepairUpdateToUefiVariable, "VornPostPackageRepairUpdateToUefiVariable") \
    MEMBER(VornRuntimePPRHandler, "VornRuntimePPRHandler")                                         \
    MEMBER(RuntimePprResult, "RuntimePprResult")                                                   \
    MEMBER(GetSlotNumberData, "GetSlotNumberData")

enum class Member : unsigned {
#define MEMBER(Id, Name) Id,
    SERVICE_MEMBERS(MEMBER)
#undef MEMBER
        Count
};

// The name that configurations and journals use.
std::string_view MemberName(Member Which);
std::optional<Member> FindMember(std::string_view Name);
// Every name, in the order of the table.
std::vector<std::string_view> MemberNames();

class ServiceFaults {
 public:
    // Throws std::invalid_argument for a name that no member has.
    void Set(const std::string& Name, std::optional<Failure> How);

    // Counts a call; the status that it must return instead of doing its work, if any.
    std::optional<EFI_STATUS> OnCall(Member Which) {
        Entry& Called = Entries[static_cast<unsigned>(Which)];
        Called.Calls++;
        return Called.Planned ? Take(Called) : std::nullopt;
    }
    std::uint64_t CallsOf(Member Which) const {
        return Entries[static_cast<unsigned>(Which)].Calls;
    }

 private:
    struct Entry {
        std::uint64_t Calls = 0;
        std::optional<Failure> Planned;
    };
    static std::optional<EFI_STATUS> Take(Entry& Called);

    std::array<Entry, static_cast<unsigned>(Member::Count)> Entries;
};

}  // namespace Simulator
