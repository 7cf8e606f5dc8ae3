#include "Simulator/Machine/CxlFabric.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "Simulator/Machine/CxlLayout.h"

namespace Simulator {

namespace {

constexpr CxlErrorName ERROR_NAMES[] = {
    {"cache-data-parity", false, 0},
    {"cache-address-parity", false, 1},
    {"cache-byte-enable-parity", false, 2},
    {"cache-data-ecc", false, 3},
    {"mem-data-parity", false, 4},
    {"mem-address-parity", false, 5},
    {"mem-byte-enable-parity", false, 6},
    {"mem-data-ecc", false, 7},
    {"reinit-threshold", false, 8},
    {"reserved-encoding-violation", false, 9},
    {"poison-received", false, 10},
    {"receiver-overflow", false, 11},
    {"internal-error", false, 14},
    {"ide-transmit", false, 15},
    {"ide-receive", false, 16},
    {"cache-data-ecc", true, 0},
    {"mem-data-ecc", true, 1},
    {"crc-threshold", true, 2},
    {"retry-threshold", true, 3},
    {"cache-poison-received", true, 4},
    {"mem-poison-received", true, 5},
    {"physical-layer-error", true, 6},
};

// CXL 3.0, section 8.2.9.2.1.
constexpr CxlEventKind EVENT_KINDS[] = {
    {"general-media", {0x770ACDFB, 0x60C2, 0x7F41, {0x85, 0xA9, 0x08, 0x8B, 0x16, 0x21, 0xEB, 0xA6}}},
    {"dram", {0xB3CB1D60, 0x069C, 0xAB4E, {0xB8, 0xAF, 0x4E, 0x9B, 0xFB, 0x5C, 0x96, 0x24}}},
    {"memory-module", {0x757492FE, 0x59DD, 0x3943, {0xA5, 0x86, 0x79, 0xBA, 0xB1, 0x13, 0xB7, 0x74}}},
    {"memory-sparing", {0x403A1FE7, 0x292D, 0x9240, {0x8A, 0x39, 0x4D, 0x1C, 0x96, 0x6C, 0x7C, 0x65}}},
    {"physical-switch", {0x7192CF77, 0x029C, 0x0B47, {0x9F, 0xE4, 0xBC, 0x7B, 0x75, 0xF2, 0xDA, 0x97}}},
    {"virtual-switch", {0x2564D240, 0x9633, 0x4D4C, {0xA5, 0xDA, 0x3D, 0x47, 0x26, 0x3A, 0xF4, 0x25}}},
    {"mld-port", {0x6343C48D, 0x960C, 0x1047, {0xB7, 0xBF, 0x04, 0xBB, 0x99, 0x53, 0x4C, 0x3F}}},
    {"dynamic-capacity", {0xA7AF95CA, 0x83F1, 0x1840, {0x8C, 0x2F, 0x95, 0x26, 0x8E, 0x10, 0x1A, 0x2A}}},
};

// AER bits of an internal error.
constexpr unsigned UNCORRECTABLE_INTERNAL_ERROR = 22;
constexpr unsigned CORRECTED_INTERNAL_ERROR = 14;

// Memory for the links of restricted devices, above everything that bridges decode.
constexpr std::uint64_t RESTRICTED_LINKS = 0x3F0000000000;

constexpr std::uint64_t NANOSECONDS_PER_MICROSECOND = 1000;

std::invalid_argument Refuse(const PcieFunction& Where, const char* Why) {
    return std::invalid_argument("\"" + Where.GivenName() + "\" " + Why);
}

void ForEachCxl(const PcieFunctionSetting& Function, const std::function<void(const PcieFunctionSetting&)>& Do) {
    if (Function.Cxl) {
        Do(Function);
    }
    for (const PcieFunctionSetting& One : Function.Below) {
        ForEachCxl(One, Do);
    }
}

}  // namespace

std::span<const CxlErrorName> CxlErrorNames() {
    return ERROR_NAMES;
}

std::span<const CxlEventKind> CxlEventKinds() {
    return EVENT_KINDS;
}

CxlFabric::CxlFabric(const PcieSettings& Settings, PcieFabric& Pcie, MmioSpace& Mmio, CxlMailbox::Clock Now)
    : Pcie(Pcie), Mmio(Mmio), Now(std::move(Now)) {
    for (const PciePortSetting& Port : Settings.Ports) {
        ForEachCxl(Port.Function, [this](const PcieFunctionSetting& One) { Add(One); });
    }
}

CxlFabric::~CxlFabric() = default;

void CxlFabric::Add(const PcieFunctionSetting& Setting) {
    PcieFunction* Function = Pcie.Find(Setting.Name);
    if (Function == nullptr) {
        throw std::invalid_argument("no function is called \"" + Setting.Name + "\"");
    }
    const CxlSetting& Cxl = *Setting.Cxl;
    auto Made = std::make_unique<Side>(Cxl.HasRas);
    Made->Component.Patch(Cxl.ComponentPatches);
    Made->Registers.Add(0, Made->Component);
    if (Cxl.IsMemoryDevice) {
        Made->Device = std::make_unique<CxlMemoryDevice>(
            Cxl, Now, [this, Function](unsigned Log, unsigned Mode) { Notify(*Function, Log, Mode); });
        Made->Registers.Add(CXL_COMPONENT_REGISTERS_SIZE, *Made->Device);
    }
    if (Cxl.IsRestricted) {
        if (Function->Above != nullptr) {
            throw Refuse(*Function, "is a restricted device: it lies on the bus of its root complex");
        }
        Made->Link = std::make_unique<CxlRestrictedPort>(
            Mmio, RESTRICTED_LINKS + Sides.size() * CxlRestrictedPort::WINDOW_SIZE);
    }
    Pcie.MapBar(*Function, CXL_REGISTER_BAR, CxlBarSize(Cxl), Made->Registers);
    Sides[Function] = std::move(Made);
}

CxlFabric::Side* CxlFabric::Find(const PcieFunction& Function) {
    const auto Found = Sides.find(&Function);
    return Found == Sides.end() ? nullptr : Found->second.get();
}

void CxlFabric::Inject(PcieFunction& Where, const CxlProtocolError& Error) {
    Side* Here = Find(Where);
    if (Here == nullptr) {
        throw Refuse(Where, "runs no CXL");
    }
    CxlRasCapability& Ras = Here->Component.Ras;
    if (Error.IsCorrectable ? Ras.LogCorrectable(Error.Bit) : Ras.LogUncorrectable(Error.Bit, Error.Header)) {
        Pcie.Inject(Where,
                    {.From = Error.IsCorrectable ? PcieError::Source::Correctable : PcieError::Source::Uncorrectable,
                     .Bit = Error.IsCorrectable ? CORRECTED_INTERNAL_ERROR : UNCORRECTABLE_INTERNAL_ERROR});
    }
}

void CxlFabric::AddEvent(PcieFunction& Where, const CXL_EVENT_RECORD& Record) {
    Side* Here = Find(Where);
    if (Here == nullptr || Here->Device == nullptr) {
        throw Refuse(Where, "is no CXL memory device");
    }
    Here->Device->Logs().Add(Record, Now() * NANOSECONDS_PER_MICROSECOND);
}

void CxlFabric::Notify(PcieFunction& Function, unsigned Log, unsigned Mode) {
    if (Mode == CxlEventInterruptSetting::Firmware) {
        // A vendor-defined message that goes to the root complex, whose MPIO raises the SMI.
        Function.Hub->CxlEvent();
    } else if (OsInterrupt) {
        OsInterrupt(Function, Log);
    }
}

std::vector<CXL_RCRB_ENTRY> CxlFabric::RegisterBlocks() const {
    std::vector<CXL_RCRB_ENTRY> Listed;
    for (const auto& [Function, One] : Sides) {
        if (One->Link != nullptr) {
            const PciAddress Where = Function->Where();
            Listed.push_back(
                {static_cast<UINT8>(Where.Segment), static_cast<UINT8>(Where.Bus), {}, One->Link->DownstreamRcrb()});
        }
    }
    return Listed;
}

}  // namespace Simulator
