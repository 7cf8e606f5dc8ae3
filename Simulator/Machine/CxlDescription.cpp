// What CXL functions have in configuration space (CXL 3.0, section 8.1).
#include <bit>
#include <functional>
#include <string>

#include "Simulator/Machine/CxlFabric.h"
#include "Simulator/Machine/CxlLayout.h"

namespace Simulator {

namespace {

constexpr unsigned EXTENDED_HEADER = 4;  // bytes of a capability that its setting does not hold

// DVSECs by what they hold besides Header 1 and the ID: words of 16 bits from +0x0A on.
constexpr unsigned DEVICE_DVSEC_LENGTH = 0x3C;
constexpr std::uint16_t DEVICE_CAPABILITY = 0x001E;  // CXL.io and CXL.mem, initialised by hardware, one HDM range
constexpr std::uint16_t DEVICE_CONTROL = 0x0006;     // CXL.io and CXL.mem enabled
constexpr unsigned DEVICE_RANGE_1_SIZE_LOW = 0x1C;
constexpr std::uint16_t RANGE_VALID_AND_ACTIVE = 0x0003;

constexpr std::uint16_t EXTENSIONS_DVSEC_ID = 3;  // for ports
constexpr unsigned EXTENSIONS_DVSEC_LENGTH = 0x28;

constexpr unsigned FLEX_BUS_DVSEC_LENGTH = 0x20;
constexpr std::uint16_t FLEX_BUS_MEM_AND_IO = 0x0006;

class Dvsec {
 public:
    Dvsec(std::uint16_t Id, unsigned Revision, unsigned Length, unsigned ToldLength)
        : Made{true, PcieExtendedCapabilityDvsec, 1, std::vector<std::uint8_t>(Length - EXTENDED_HEADER)} {
        Set32(CXL_DVSEC_HEADER_1, DvsecHeader1::VendorId::Of(CXL_DVSEC_VENDOR_ID) |
                                      DvsecHeader1::Revision::Of(Revision) | DvsecHeader1::Length::Of(ToldLength));
        Set16(CXL_DVSEC_HEADER_2, Id);
    }
    Dvsec(std::uint16_t Id, unsigned Revision, unsigned Length) : Dvsec(Id, Revision, Length, Length) {}

    // Offset: bytes from the capability's start.
    Dvsec& Set16(unsigned Offset, std::uint16_t Value) {
        Made.Bytes.at(Offset - EXTENDED_HEADER) = static_cast<std::uint8_t>(Value);
        Made.Bytes.at(Offset - EXTENDED_HEADER + 1) = static_cast<std::uint8_t>(Value >> 8);
        return *this;
    }
    Dvsec& Set32(unsigned Offset, std::uint32_t Value) {
        Set16(Offset, static_cast<std::uint16_t>(Value));
        return Set16(Offset + 2, static_cast<std::uint16_t>(Value >> 16));
    }
    operator CapabilitySetting() const {
        return Made;
    }

 private:
    CapabilitySetting Made;
};

CapabilitySetting FlexBusPort() {
    return Dvsec(CxlDvsecFlexBusPort, 2, FLEX_BUS_DVSEC_LENGTH)
        .Set16(0xA, FLEX_BUS_MEM_AND_IO)   // can
        .Set16(0xC, FLEX_BUS_MEM_AND_IO)   // is to
        .Set16(0xE, FLEX_BUS_MEM_AND_IO);  // does
}

CapabilitySetting RegisterLocator(const CxlSetting& Setting) {
    std::vector<CxlLocatorEntry> Entries = {{0, CxlBlockComponentRegisters, 0}};
    if (Setting.IsMemoryDevice) {
        Entries.push_back({0, CxlBlockMemoryDeviceRegisters, CXL_COMPONENT_REGISTERS_SIZE});
    }
    if (Setting.Locator) {
        Entries = *Setting.Locator;
    }
    const unsigned Length =
        CXL_REGISTER_LOCATOR_ENTRIES + static_cast<unsigned>(Entries.size()) * CXL_REGISTER_LOCATOR_ENTRY_SIZE;
    Dvsec Made(CxlDvsecRegisterLocator, 0, Length, Setting.LocatorLength.value_or(Length));
    for (unsigned Index = 0; Index < Entries.size(); Index++) {
        const CxlLocatorEntry& One = Entries[Index];
        const unsigned At = CXL_REGISTER_LOCATOR_ENTRIES + Index * CXL_REGISTER_LOCATOR_ENTRY_SIZE;
        Made.Set32(At, (static_cast<std::uint32_t>(One.Offset) & CxlRegisterOffsetLow::Offset::Mask) |
                           CxlRegisterOffsetLow::BlockIdentifier::Of(One.Block) |
                           CxlRegisterOffsetLow::BarIndicator::Of(One.Bar));
        Made.Set32(At + 4, static_cast<std::uint32_t>(One.Offset >> 32));
    }
    return Made;
}

void Describe(PcieFunctionSetting& Function, unsigned& Named) {
    const CxlSetting& Setting = *Function.Cxl;
    if (Function.Name.empty()) {
        Function.Name = "cxl function " + std::to_string(++Named);
    }
    if (Setting.IsMemoryDevice) {
        Function.ClassCode = Function.ClassCode.value_or(0x050210);
        Function.Capabilities.push_back(Dvsec(CxlDvsecDevice, 2, DEVICE_DVSEC_LENGTH)
                                            .Set16(0xA, DEVICE_CAPABILITY)
                                            .Set16(0xC, DEVICE_CONTROL)
                                            .Set16(DEVICE_RANGE_1_SIZE_LOW, RANGE_VALID_AND_ACTIVE)
                                            .Set16(DEVICE_RANGE_1_SIZE_LOW + 2, 0x4000));  // 1 GiB
    } else {
        Function.Capabilities.push_back(Dvsec(EXTENSIONS_DVSEC_ID, 0, EXTENSIONS_DVSEC_LENGTH));
    }
    Function.Capabilities.push_back(FlexBusPort());
    Function.Capabilities.push_back(RegisterLocator(Setting));
    Function.Bars.push_back({CXL_REGISTER_BAR, 0, CxlBarSize(Setting), true, true, false});
}

void DescribeFrom(PcieFunctionSetting& Function, unsigned& Named) {
    if (Function.Cxl) {
        Describe(Function, Named);
    }
    for (PcieFunctionSetting& One : Function.Below) {
        DescribeFrom(One, Named);
    }
}

}  // namespace

void DescribeCxl(PcieSettings& Settings) {
    unsigned Named = 0;
    for (PciePortSetting& Port : Settings.Ports) {
        DescribeFrom(Port.Function, Named);
    }
}

}  // namespace Simulator
