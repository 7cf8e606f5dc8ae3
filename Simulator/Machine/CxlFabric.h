// The CXL side of a machine's PCIe functions: the registers behind their BARs, what happens to them, and how it is
// told.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "Include/PlatformApeiData.h"
#include "Simulator/Machine/CxlMemoryDevice.h"
#include "Simulator/Machine/CxlRestrictedPort.h"
#include "Simulator/Machine/PcieFabric.h"

namespace Simulator {

// Adds to every function that runs CXL what that needs in configuration space: a name of its own, the DVSECs with the
// register locator, and the base address register that it points to.
void DescribeCxl(PcieSettings& Settings);

// A CXL protocol error as it happens at a port or device. Bit: of the uncorrectable or the correctable status.
struct CxlProtocolError {
    bool IsCorrectable = false;
    unsigned Bit = 0;
    CxlRasCapability::HeaderLog Header{};
};

struct CxlErrorName {
    std::string_view Name;
    bool IsCorrectable;
    unsigned Bit;
};
// The errors that can happen, by the standard's names.
std::span<const CxlErrorName> CxlErrorNames();

// The kinds of event records, by the standard's names. The UUID's bytes stand in the order in which it is written.
struct CxlEventKind {
    std::string_view Name;
    EFI_GUID Uuid;
};
std::span<const CxlEventKind> CxlEventKinds();

class CxlFabric {
 public:
    // Settings: what the fabric was built from, described. Throws std::invalid_argument for a CXL side that cannot be
    // built.
    CxlFabric(const PcieSettings& Settings, PcieFabric& Pcie, MmioSpace& Mmio, CxlMailbox::Clock Now);
    ~CxlFabric();
    CxlFabric(const CxlFabric&) = delete;
    CxlFabric& operator=(const CxlFabric&) = delete;

    struct Side {
        explicit Side(bool HasRas) : Component(HasRas) {}

        CxlComponentRegisters Component;
        std::unique_ptr<CxlMemoryDevice> Device;  // nullptr for ports and accelerators
        std::unique_ptr<CxlRestrictedPort> Link;  // of a restricted device
        CxlBar Registers;
    };
    // nullptr for a function without one.
    Side* Find(const PcieFunction& Function);

    // An error happens at a function. What its RAS capability does not mask shows as an internal error of the
    // function. Throws std::invalid_argument for a function that runs no CXL.
    void Inject(PcieFunction& Where, const CxlProtocolError& Error);
    // An event happens in a memory device. Throws std::invalid_argument for another function.
    void AddEvent(PcieFunction& Where, const CXL_EVENT_RECORD& Record);

    // Root complex register blocks of the restricted ports, as the platform lists them.
    std::vector<CXL_RCRB_ENTRY> RegisterBlocks() const;

    // A device's interrupt for the operating system: which function's, for which event log.
    std::function<void(const PcieFunction& Function, unsigned Log)> OsInterrupt;

 private:
    void Add(const PcieFunctionSetting& Setting);
    void Notify(PcieFunction& Function, unsigned Log, unsigned Mode);

    PcieFabric& Pcie;
    MmioSpace& Mmio;
    CxlMailbox::Clock Now;
    std::map<const PcieFunction*, std::unique_ptr<Side>> Sides;
};

}  // namespace Simulator
