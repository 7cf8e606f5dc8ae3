// An IO hub controller as error handling sees it: which of its root ports have errors, what that raises, and the
// straps and locks of the PCIe cores behind it. Registers lie on the system management network of the socket.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "Include/NbioRegisters.h"
#include "Simulator/Machine/PciSpace.h"
#include "Simulator/Machine/RootComplexes.h"

namespace Simulator {

class PcieFunction;

class IoHub {
 public:
    static constexpr unsigned PORTS = 22;  // bits of the status register; a hub has fewer

    explicit IoHub(const RootComplex& Where);
    ~IoHub();
    IoHub(const IoHub&) = delete;
    IoHub& operator=(const IoHub&) = delete;

    const RootComplex& Location() const {
        return Complex;
    }
    unsigned PortCount() const {
        return IohcPortCount(static_cast<UINT8>(Complex.Nbio * 4 + Complex.Iohc));
    }
    // The port appears as this function. Ports beyond those that the hub has are taken as well: they have a status
    // bit, but no registers of their own.
    void SetPort(unsigned Number, PcieFunction& Function);
    PcieFunction* Port(unsigned Number) const {
        return Number < PORTS ? Ports[Number] : nullptr;
    }
    // Makes the hub's registers reachable through a root complex of its socket.
    void MapInto(SmnSpace& Smn);

    enum class Signal { Correctable, NonFatal, Fatal };
    // A port signals a system error. IsInternal: the port itself is its source. A correctable one raises something
    // where the port's action control says so.
    void SystemError(unsigned Port, Signal What, bool IsInternal);
    // A port signals its firmware: containment, or an error of root port programmed IO.
    void FirmwareEvent(unsigned Port);
    // The MPIO signals an event of a CXL device.
    void CxlEvent();
    // What keeps a port's status bit set although software clears it: asked whenever it does.
    std::function<bool(unsigned Port)> StillAsserted;

    bool HasSmiPending() const;
    std::uint32_t GlobalStatus() const;
    std::uint32_t GlobalStatusHi() const {
        return StatusHi;
    }

    bool IsHwInitLocked(unsigned Port) const;
    bool ReportsSurpriseDown(unsigned Port) const;
    void SetSurpriseDownStrap(unsigned Port, std::uint32_t Value);
    // Called when a strap changes.
    std::function<void(unsigned Port)> StrapChanged;
    // What a corrected error of the port raises, as its action control says.
    std::uint32_t CorrectedAction(unsigned Port, bool IsInternal) const;

 private:
    enum class Block {
        GlobalStatus,
        SoftwareSmi,
        BridgeMap,
        Actions,
        CoreControl,
        SecondCoreControl,
        ErrorControl,
        SecondErrorControl
    };
    class Window;
    std::uint32_t Read(Block Which, std::uint32_t Register) const;
    bool Has(Block Which, std::uint32_t Register) const;
    void Write(Block Which, std::uint32_t Register, std::uint32_t Value);
    void AddWindow(Block Which, std::uint32_t Base, std::uint32_t Size);

    RootComplex Complex;
    std::array<PcieFunction*, PORTS> Ports{};
    std::uint32_t StatusHi = 0;
    std::uint32_t SoftwareSmi = 0;
    std::array<std::uint32_t, PORTS> ExternalAction{}, InternalAction{}, BridgeMap{}, ErrorControl{};
    std::array<std::uint32_t, 2> CoreControl{};
    std::vector<std::unique_ptr<Window>> Windows;
};

}  // namespace Simulator
