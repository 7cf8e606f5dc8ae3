// The platform firmware around the driver: its tables, services and data, and the way into SMM and out again.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Simulator/Configuration.h"
#include "Simulator/Firmware/ApeiLogging.h"
#include "Simulator/Firmware/EventLog.h"
#include "Simulator/Firmware/MemoryRepair.h"
#include "Simulator/Firmware/MemoryService.h"
#include "Simulator/Firmware/Names.h"
#include "Simulator/Firmware/PlatformData.h"
#include "Simulator/Firmware/Pool.h"
#include "Simulator/Firmware/ProtocolDatabase.h"
#include "Simulator/Firmware/RasService.h"
#include "Simulator/Firmware/ServiceMembers.h"
#include "Simulator/Firmware/SmiDispatch.h"
#include "Simulator/Machine/Machine.h"

namespace Simulator {

class Firmware {
 public:
    // Throws std::invalid_argument for names in the configuration that nothing has.
    Firmware(const Configuration& Settings, Simulator::Machine& Hardware);
    ~Firmware();
    Firmware(const Firmware&) = delete;
    Firmware& operator=(const Firmware&) = delete;

    // The firmware whose services run. Calling a service without one ends the process.
    static Firmware& Current();

    EFI_SYSTEM_TABLE* SystemTable();
    EFI_SMM_SYSTEM_TABLE2* SmmSystemTable();

    // The driver's image is loaded: what it registers and installs from now on is its own.
    void LoadImage();
    // The entry point failed: what the image left registered is dangling, and an event each.
    void UnloadImage();
    const std::vector<std::string>& Dangling() const {
        return DanglingRegistrations;
    }
    // Later drivers' protocols, end of DXE, ready to boot, with their notifications.
    void FinishBoot();

    // One SMI: all processors enter, Dispatch runs the handlers, all leave and the OS goes on.
    template <class Dispatch>
    EFI_STATUS RunSmi(std::string_view Kind, Dispatch&& RunHandlers) {
        EnterSmm(Kind);
        const DispatchResult Result = RunHandlers();
        ExitSmm(Kind, Result);
        return Result.Status;
    }
    // The software SMI that the IO cycle of the RAS service raises; 0x100 while none is programmed.
    std::uint64_t MachineCheckSmiValue() const;
    // The PSP raises its SMI with this status: whoever serves it while memory is repaired at run time is called.
    EFI_STATUS RaisePspSmi(UINT32 RepairStatus);
    // SMIs since power-on.
    std::uint64_t SmiCount() const {
        return Smis;
    }

    const Configuration Settings;
    Simulator::Machine& Hardware;
    ServiceFaults Faults;
    Pool SmmPool;
    PlatformData Data;
    ProtocolDatabase BootProtocols;
    ProtocolDatabase SmmProtocols;
    SmiDispatch Dispatch;
    RasService Ras;
    MemoryService Dram;
    MemoryRepair Repair;
    EventLog Events;
    ApeiLogging Apei;
    std::set<unsigned> SilentProcessors;
    std::map<std::uint32_t, std::uint8_t> TalvoConfig;  // the silicon maker's configuration buffer

 private:
    void InstallProtocols();
    void EnterSmm(std::string_view Kind);
    void ExitSmm(std::string_view Kind, const DispatchResult& Result);
    void CheckPool();

    struct Tables;
    std::unique_ptr<Tables> Published;
    std::uint64_t Smis = 0;
    std::vector<std::string> DanglingRegistrations;
};

// The service member fails as planned, or does its work.
template <class Body>
EFI_STATUS Serve(Member Which, Body&& Work) {
    if (const auto Planned = Firmware::Current().Faults.OnCall(Which)) {
        return *Planned;
    }
    return Work();
}

// The same for a call that changes something: it is journalled with its arguments and its status.
template <class MakeArguments, class Body>
EFI_STATUS ServeChange(Member Which, MakeArguments&& Arguments, Body&& Work) {
    const EFI_STATUS Status = Serve(Which, Work);
    Firmware::Current().Hardware.Note("service", [&] {
        nlohmann::ordered_json Fields{{"member", MemberName(Which)}};
        Fields.update(Arguments());
        Fields["status"] = StatusName(Status);
        return Fields;
    });
    return Status;
}

}  // namespace Simulator
