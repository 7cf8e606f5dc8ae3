#include "Simulator/Machine/CxlRestrictedPort.h"

#include "Include/PciRegisters.h"

namespace Simulator {

namespace {

constexpr std::uint64_t DOWNSTREAM_COMPONENT = 0x10000;
constexpr std::uint64_t UPSTREAM_COMPONENT = 0x20000;

constexpr std::uint64_t FLEX_BUS_DVSEC = 0x100;
constexpr std::uint32_t FLEX_BUS_DVSEC_LENGTH = 0x20;
constexpr std::uint64_t FLEX_BUS_CONTROL = 0xC;        // control, then status
constexpr std::uint32_t FLEX_BUS_MEM_AND_CACHE = 0x7;  // CXL.cache, CXL.io and CXL.mem run

}  // namespace

CxlRestrictedPort::Rcrb::Rcrb(std::uint64_t ComponentBase)
    : CxlRegisterBlock(CXL_RCRB_SIZE),
      Registers{
          {0x0, PcieExtendedCapabilityHeader::Next::Of(FLEX_BUS_DVSEC)},  // a header with no more than that
          {CXL_RCRB_MEMBAR0_LOW, static_cast<std::uint32_t>(ComponentBase) | PciBar::Type::Of(PciBar::Type64)},
          {CXL_RCRB_MEMBAR0_HIGH, static_cast<std::uint32_t>(ComponentBase >> 32)},
          {FLEX_BUS_DVSEC, PcieExtendedCapabilityHeader::Version::Of(1) |
                               PcieExtendedCapabilityHeader::Id::Of(PcieExtendedCapabilityDvsec)},
          {FLEX_BUS_DVSEC + CXL_DVSEC_HEADER_1,
           DvsecHeader1::VendorId::Of(CXL_DVSEC_VENDOR_ID) | DvsecHeader1::Length::Of(FLEX_BUS_DVSEC_LENGTH)},
          {FLEX_BUS_DVSEC + CXL_DVSEC_HEADER_2,
           DvsecHeader2::Id::Of(CxlDvsecFlexBusPort) | FLEX_BUS_MEM_AND_CACHE << 16},
          {FLEX_BUS_DVSEC + FLEX_BUS_CONTROL,
           FLEX_BUS_MEM_AND_CACHE | FLEX_BUS_MEM_AND_CACHE << 16},  // enabled, and on
      } {}

std::uint32_t CxlRestrictedPort::Rcrb::ReadRegister(std::uint64_t Offset) {
    const auto Found = Registers.find(Offset);
    return Found == Registers.end() ? 0 : Found->second;
}

CxlRestrictedPort::CxlRestrictedPort(MmioSpace& Mmio, std::uint64_t Base)
    : Mmio(Mmio), Base(Base), DownstreamBlock(Base + DOWNSTREAM_COMPONENT), UpstreamBlock(Base + UPSTREAM_COMPONENT) {
    Mmio.MapDevice(Base, CXL_RCRB_SIZE, "RCRB of a CXL downstream port", DownstreamBlock);
    Mmio.MapDevice(Base + CXL_RCRB_UPSTREAM_OFFSET, CXL_RCRB_SIZE, "RCRB of a CXL upstream port", UpstreamBlock);
    Mmio.MapDevice(Base + DOWNSTREAM_COMPONENT, Downstream.Bytes(), "restricted CXL downstream port", Downstream);
    Mmio.MapDevice(Base + UPSTREAM_COMPONENT, Upstream.Bytes(), "restricted CXL upstream port", Upstream);
}

CxlRestrictedPort::~CxlRestrictedPort() {
    for (const std::uint64_t Offset :
         {std::uint64_t{0}, CXL_RCRB_UPSTREAM_OFFSET, DOWNSTREAM_COMPONENT, UPSTREAM_COMPONENT}) {
        Mmio.Unmap(Base + Offset);
    }
}

}  // namespace Simulator
