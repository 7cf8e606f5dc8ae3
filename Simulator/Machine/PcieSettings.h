// What a machine's PCIe hierarchy is made of, as it is described before it is built.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Simulator/Machine/CxlSettings.h"

namespace Simulator {

enum class PcieKind {
    RootPort,
    EventCollector,
    IntegratedEndpoint,
    Endpoint,
    LegacyEndpoint,
    SwitchUpstreamPort,
    SwitchDownstreamPort,
    PcieToPciBridge,
    Pci,        // a conventional function: no PCI Express capability
    PciBridge,  // a conventional bridge
};

struct BarSetting {
    unsigned Index = 0;
    std::uint64_t Base = 0;  // 0: laid out with the others
    std::uint64_t Size = 0;  // bytes, a power of two; 0: reads as Base, but nothing of it can be written
    bool Is64 = false;
    bool IsPrefetchable = false;
    bool IsIo = false;
};

struct PcieSlotSetting {
    unsigned Number = 0;  // physical slot number
    bool HotPlugCapable = true;
    bool HotPlugSurprise = false;
    bool PowerController = false;
    bool Occupied = true;
    // What the platform calls it.
    bool IsNvmeBay = false;
    unsigned Bay = 0;
    unsigned BaySlot = 0;
};

struct DpcSetting {
    bool RootPortExtensions = true;  // root ports only: RP PIO registers
    unsigned LogSize = 4;            // RP PIO log, doublewords; with 5 and more an implementation-specific log
    unsigned Trigger = 2;            // 0 disabled, 1 fatal, 2 fatal and non-fatal
    bool ErrCor = true;
    bool Interrupt = false;
};

// Bytes put over what was built, whatever they break: a register as given.
struct RegisterSetting {
    unsigned Offset = 0;
    unsigned Width = 4;  // bytes
    std::uint32_t Value = 0;
};

// Something that has one more capability: the given bytes follow the capability's own header.
struct CapabilitySetting {
    bool IsExtended = false;
    unsigned Id = 0;
    unsigned Version = 1;
    std::vector<std::uint8_t> Bytes;
};

struct PcieFunctionSetting {
    std::string Name;  // steps may say it instead of an address
    PcieKind Kind = PcieKind::Endpoint;
    std::optional<unsigned> Device;  // the next free one where it is not given
    unsigned Function = 0;
    std::optional<std::uint16_t> VendorId, DeviceId, SubsystemVendorId, SubsystemId;
    std::optional<std::uint32_t> ClassCode;  // base class, subclass, interface: 24 bits
    unsigned Version = 2;                    // of the PCI Express capability
    bool RoleBased = true;                   // false: error reporting as in PCI Express 1.0a
    bool Aer = true;
    bool PowerManagement = true;
    bool SecondaryPcie = true;
    bool Sfi = false;
    bool LinkActiveReporting = true;  // ports
    bool SurpriseDown = false;        // ports: the strap lets a lost link be reported from the start
    unsigned MaxPayload = 1;          // 128 bytes shifted left by it
    std::optional<std::uint64_t> SerialNumber;
    std::optional<unsigned> NvmeSwitchMode;  // the platform's NVMe switch, in that operating mode: 0 BSW, 1 iSSW
    std::optional<PcieSlotSetting> Slot;     // ports
    std::optional<DpcSetting> Dpc;           // ports
    std::optional<CxlSetting> Cxl;           // runs CXL
    std::vector<BarSetting> Bars;
    std::vector<CapabilitySetting> Capabilities;
    std::vector<RegisterSetting> Registers;
    unsigned SpareBuses = 0;                 // bridges: bus numbers kept for what may come
    std::vector<PcieFunctionSetting> Below;  // bridges: what lies on the secondary bus
};

// A root port or event collector of a root complex.
struct PciePortSetting {
    unsigned RootComplex = 0;
    std::optional<unsigned> Port;  // of the IO hub; the next one where it is not given
    bool CxlCapable = false;       // as the port map says it
    unsigned CxlMode = 0;          // 2: CXL 2.0 or later
    PcieFunctionSetting Function{};
};

// Functions as they were read from another machine.
struct PciDumpSetting {
    std::string Text;       // in the format of lspci -xxxx
    bool Reporting = true;  // the boot firmware enables error reporting in them
};

// Who logs that a configuration request, a probe most likely, found nobody: an unsupported request where the port
// itself ends it, a received master abort where the completion comes from below.
enum class ProbeLogging { None, RootPorts, All };

struct PcieSettings {
    bool IsDefault = true;  // the default hierarchy, whatever Ports holds
    std::vector<PciePortSetting> Ports;
    std::optional<PciDumpSetting> Dump;
    ProbeLogging Probes = ProbeLogging::RootPorts;
    std::uint64_t LinkTraining = 0;  // microseconds that a link needs to come up again
};

// The default machine's hierarchy.
std::vector<PciePortSetting> DefaultPciePorts();

}  // namespace Simulator
