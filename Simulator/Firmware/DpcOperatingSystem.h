// An operating system that recovers contained ports by Error Disconnect Recover, and the ACPI code between it and the
// firmware (PCI Firmware 3.3, sections 4.6.12 and 4.6.13; ACPI 6.5, section 6.3.5). All that the two
// remember lies in the memory that they share with the driver.
#pragma once

#include <cstdint>
#include <vector>

#include "Include/RasAcpiSmmData.h"
#include "Simulator/Machine/PciSpace.h"
#include "Simulator/Simulation.h"

namespace Simulator {

class DpcOperatingSystem {
 public:
    explicit DpcOperatingSystem(Simulation& Run);

    // The OS evaluates _DSM of the port, function 12: it wants to recover it. The ACPI code enters the port into the
    // table of such ports, where it does not stand yet and there is room, names it in DPC_EnIioSmiGen and raises the
    // software SMI. The status of that SMI's handler.
    EFI_STATUS RequestPort(const PciAddress& Port);

    // What the OS clears at a port that it was notified of: nothing, the trigger status, or errors and all.
    enum class Clears { Nothing, Trigger, Everything };
    // The ACPI code serves the SCI about containment, if it was raised since it last did: every port in use that the
    // OS has asked for and not heard of gets its notification, and the OS sets about recovering it. The ports that
    // were notified.
    std::vector<PciAddress> ServeInterrupt(Clears What);
    void Recover(const PciAddress& Port, Clears What);

    // The OS evaluates _OST of the port. The ACPI code stores the status and raises the software SMI. It takes a port
    // that is recovered, and not contained again, out of the buffer. False where the buffer does not hold the port:
    // nothing happens then.
    bool ReportOutcome(const PciAddress& Port, std::uint8_t Status);

    RAS_ACPI_SMM_DATA& Shared() {
        return Area;
    }

    // Software SMIs of the ACPI code.
    static constexpr std::uint8_t REQUEST_SMI = 0xD8, OUTCOME_SMI = 0xD5;

 private:
    EFI_STATUS RaiseSmi(std::uint8_t Value);
    bool IsRequested(const PciAddress& Port) const;
    DPC_TRIGGER_ENTRY* Find(const PciAddress& Port);
    bool IsContained(const PciAddress& Port);

    Simulation& Run;
    RAS_ACPI_SMM_DATA& Area;
};

}  // namespace Simulator
