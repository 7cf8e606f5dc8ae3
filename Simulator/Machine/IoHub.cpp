#include "Simulator/Machine/IoHub.h"

#include <algorithm>
#include <bit>

#include "Simulator/Machine/PcieFunction.h"

namespace Simulator {

namespace {

constexpr std::uint32_t PORT_BITS = 0x3FFFFF;
constexpr std::uint32_t MPIO_INTERRUPT = 1 << 9;  // of the global status
constexpr std::uint32_t CXL_EVENT = 1 << 1;       // of the software SMI control

constexpr std::uint32_t GLOBAL_STATUS = 0x20020;  // low and high half
constexpr std::uint32_t SOFTWARE_SMI = 0x1010C;
constexpr std::uint32_t BRIDGE_MAP = 0x100B8;
constexpr std::uint32_t EVEN_BASE = 0x13B00000, ODD_BASE = 0x1D400000;
constexpr std::uint32_t EVEN_ACTIONS = 0x13B20270, ODD_ACTIONS = 0x1D420118;
constexpr std::uint32_t IOHC_STRIDE = 0x100000, NBIO_STRIDE = 0x200000;

// Within a port's 32 bytes of action control registers.
constexpr std::uint32_t ACTION_STRIDE = 0x20, INTERNAL_ACTION = 0x0, EXTERNAL_ACTION = 0xC;

// Cores by the IO hub of their NBIO that they belong to; the last one is the second core of IO hub 2.
constexpr std::uint32_t CORES[] = {0x1A300000, 0x1A400000, 0x1A700000, 0x1A800000, 0x1AB00000};
constexpr unsigned SECOND_CORE = 4;
constexpr std::uint32_t CORE_CONTROL = 0x80040, ERROR_CONTROL = 0x401A8, ERROR_CONTROL_STRIDE = 0x1000;

}  // namespace

class IoHub::Window : public SmnDevice {
 public:
    Window(IoHub& Hub, Block Which, std::uint32_t Base, std::uint32_t Size)
        : Base(Base), Size(Size), Hub(Hub), Which(Which) {}

    std::optional<std::uint32_t> Read(std::uint32_t Register) const override {
        return Hub.Has(Which, Register) ? std::optional(Hub.Read(Which, Register)) : std::nullopt;
    }
    bool Write(std::uint32_t Register, std::uint32_t Value) override {
        if (!Hub.Has(Which, Register)) {
            return false;
        }
        Hub.Write(Which, Register, Value);
        return true;
    }

    const std::uint32_t Base, Size;

 private:
    IoHub& Hub;
    Block Which;
};

IoHub::IoHub(const RootComplex& Where) : Complex(Where) {
    CoreControl.fill(PcieCoreControl::HwInitLock::Of(1));
    const bool IsEven = Where.Iohc % 2 == 0;
    const std::uint32_t Offset = Where.Iohc / 2 * IOHC_STRIDE + Where.Nbio * NBIO_STRIDE;
    const std::uint32_t Base = (IsEven ? EVEN_BASE : ODD_BASE) + Offset;
    const std::uint32_t Count = PortCount();
    AddWindow(Block::GlobalStatus, Base + GLOBAL_STATUS, 8);
    AddWindow(Block::SoftwareSmi, Base + SOFTWARE_SMI, 4);
    AddWindow(Block::BridgeMap, Base + BRIDGE_MAP, 4 * Count);
    AddWindow(Block::Actions, (IsEven ? EVEN_ACTIONS : ODD_ACTIONS) + Offset, ACTION_STRIDE * Count);
    const std::uint32_t Core = CORES[Where.Iohc % 4] + Where.Nbio * NBIO_STRIDE;
    AddWindow(Block::CoreControl, Core + CORE_CONTROL, 4);
    AddWindow(Block::ErrorControl, Core + ERROR_CONTROL, ERROR_CONTROL_STRIDE * IOHC_PORTS);
    if (Count > IOHC_PORTS) {
        const std::uint32_t Second = CORES[SECOND_CORE] + Where.Nbio * NBIO_STRIDE;
        AddWindow(Block::SecondCoreControl, Second + CORE_CONTROL, 4);
        AddWindow(Block::SecondErrorControl, Second + ERROR_CONTROL, ERROR_CONTROL_STRIDE * (Count - IOHC_PORTS));
    }
}

IoHub::~IoHub() = default;

void IoHub::AddWindow(Block Which, std::uint32_t Base, std::uint32_t Size) {
    Windows.push_back(std::make_unique<Window>(*this, Which, Base, Size));
}

void IoHub::MapInto(SmnSpace& Smn) {
    for (const auto& One : Windows) {
        Smn.MapDevice(One->Base, One->Size, *One);
    }
}

void IoHub::SetPort(unsigned Number, PcieFunction& Function) {
    Ports[Number] = &Function;
    BridgeMap[Number] = NbioBridgeMap::Device::Of(Function.Device) | NbioBridgeMap::Function::Of(Function.Function);
}

std::uint32_t IoHub::CorrectedAction(unsigned Port, bool IsInternal) const {
    return IohcActionControl::IntrGenSel::Get(IsInternal ? InternalAction[Port] : ExternalAction[Port]);
}

void IoHub::SystemError(unsigned Port, Signal What, bool IsInternal) {
    if (What == Signal::Correctable && CorrectedAction(Port, IsInternal) != IohcActionControl::GENERATE_SMI) {
        return;
    }
    FirmwareEvent(Port);
}

void IoHub::FirmwareEvent(unsigned Port) {
    StatusHi |= 1u << Port & PORT_BITS;
}

void IoHub::CxlEvent() {
    SoftwareSmi |= CXL_EVENT;
}

bool IoHub::HasSmiPending() const {
    return StatusHi != 0 || GlobalStatus() != 0;
}

std::uint32_t IoHub::GlobalStatus() const {
    return (SoftwareSmi & CXL_EVENT) != 0 ? MPIO_INTERRUPT : 0;
}

bool IoHub::IsHwInitLocked(unsigned Port) const {
    return PcieCoreControl::HwInitLock::Get(CoreControl[Port < IOHC_PORTS ? 0 : 1]) != 0;
}

bool IoHub::ReportsSurpriseDown(unsigned Port) const {
    return PcieErrorControl::SurpriseDownStrap::Get(ErrorControl[Port]) == PcieErrorControl::SURPRISE_DOWN_REPORTED;
}

void IoHub::SetSurpriseDownStrap(unsigned Port, std::uint32_t Value) {
    ErrorControl[Port] = PcieErrorControl::SurpriseDownStrap::Set(ErrorControl[Port], Value);
}

bool IoHub::Has(Block Which, std::uint32_t Register) const {
    switch (Which) {
        case Block::Actions: {
            const std::uint32_t InPort = Register % ACTION_STRIDE;
            return InPort == INTERNAL_ACTION || InPort == EXTERNAL_ACTION;
        }
        case Block::ErrorControl:
        case Block::SecondErrorControl:
            return Register % ERROR_CONTROL_STRIDE == 0;
        default:
            return Register % 4 == 0;
    }
}

std::uint32_t IoHub::Read(Block Which, std::uint32_t Register) const {
    switch (Which) {
        case Block::GlobalStatus:
            return Register == 0 ? GlobalStatus() : StatusHi;
        case Block::SoftwareSmi:
            return SoftwareSmi;
        case Block::BridgeMap:
            return BridgeMap[Register / 4];
        case Block::Actions: {
            const std::uint32_t Port = Register / ACTION_STRIDE;
            return Register % ACTION_STRIDE == INTERNAL_ACTION ? InternalAction[Port] : ExternalAction[Port];
        }
        case Block::CoreControl:
            return CoreControl[0];
        case Block::SecondCoreControl:
            return CoreControl[1];
        case Block::ErrorControl:
            return ErrorControl[Register / ERROR_CONTROL_STRIDE];
        case Block::SecondErrorControl:
            return ErrorControl[IOHC_PORTS + Register / ERROR_CONTROL_STRIDE];
    }
    return 0;
}

void IoHub::Write(Block Which, std::uint32_t Register, std::uint32_t Value) {
    const auto SetErrorControl = [&](std::uint32_t Port) {
        ErrorControl[Port] = Value;
        if (StrapChanged) {
            StrapChanged(Port);
        }
    };
    switch (Which) {
        case Block::GlobalStatus:
            if (Register == 4) {
                std::uint32_t Left = Value & StatusHi;
                StatusHi &= ~Value;
                for (; Left != 0; Left &= Left - 1) {
                    const auto Port = static_cast<unsigned>(std::countr_zero(Left));
                    StatusHi |= StillAsserted && StillAsserted(Port) ? 1u << Port : 0;
                }
            }
            break;
        case Block::SoftwareSmi:
            SoftwareSmi &= ~(Value & CXL_EVENT);
            break;
        case Block::BridgeMap:
            break;  // settled when the ports were laid out
        case Block::Actions: {
            const std::uint32_t Port = Register / ACTION_STRIDE;
            (Register % ACTION_STRIDE == INTERNAL_ACTION ? InternalAction[Port] : ExternalAction[Port]) = Value;
            break;
        }
        case Block::CoreControl:
            CoreControl[0] = Value;
            break;
        case Block::SecondCoreControl:
            CoreControl[1] = Value;
            break;
        case Block::ErrorControl:
            SetErrorControl(Register / ERROR_CONTROL_STRIDE);
            break;
        case Block::SecondErrorControl:
            SetErrorControl(IOHC_PORTS + Register / ERROR_CONTROL_STRIDE);
            break;
    }
}

}  // namespace Simulator
