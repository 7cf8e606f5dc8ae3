// A booted machine with eight root complexes a socket whose IO hub registers a test maps one by one, and a port map
// of its own.
#pragma once

#include <array>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "Include/PciDeviceState.h"
#include "Library/RasLib/Globals.h"
#include "Simulator/Machine/Machine.h"
#include "Tests/Library/VornElogPolicyLib/PolicyMachine.h"
#include "Tests/Support/LaidFunction.h"
#include "Tests/Support/TestPortMap.h"

class IoHubMachine : public PolicyMachine {
 public:
    explicit IoHubMachine(Simulator::Configuration Settings = {}) : PolicyMachine(EightHubs(std::move(Settings))) {
        for (unsigned Socket = 0; Socket < 2; Socket++) {
            for (unsigned Iom = 0; Iom < 8; Iom++) {
                auto Made = std::make_unique<Simulator::RootComplexFunction>();
                Hubs[Socket][Iom] = Made.get();
                Sim.Machine().Pci().Add({0, BusOf(Socket, Iom), 0, 0}, std::move(Made));
                SetRange(Socket * 8 + Iom, 0, BusOf(Socket, Iom), BusOf(Socket, Iom) + 15, Socket, Iom);
            }
        }
        SetPorts({});
    }

    // The root bus of an IO hub; it decodes 16 buses.
    static constexpr unsigned BusOf(unsigned Socket, unsigned Iom) {
        return (Socket * 8 + Iom) * 16;
    }
    Simulator::SmnSpace& Smn(unsigned Socket, unsigned Iom) {
        return Hubs[Socket][Iom]->Smn;
    }
    // A bus range of the data fabric. The fabric IDs of the machine's IO stops begin at 0x20.
    void SetRange(unsigned Range, unsigned Segment, unsigned First, unsigned Last, unsigned Socket, unsigned Iom,
                  bool Enable = true) {
        Simulator::FabricRegisters& Fabric = Sim.Machine().Fabric();
        Fabric.Set(0, 0, 0xE00 + 8 * Range, 0xFFFFFFFF, First << 16 | Segment << 8 | (Enable ? 1 : 0));
        Fabric.Set(0, 0, 0xE04 + 8 * Range, 0xFFFFFFFF, Last << 16 | Socket << 8 | (0x20 + Iom));
    }

    // The platform's port map from here on.
    void SetPorts(const std::vector<TestPort>& Ports) {
        PortMap.Set(Ports);
    }
    // A root port with a slot; bus numbers as given.
    LaidFunction& AddRootPort(UINT8 Bus, UINT8 Dev, UINT8 Func, UINT8 Secondary, UINT8 Subordinate,
                              UINT32 SlotCapabilities = 0) {
        LaidFunction& Made = Functions.emplace_back(Sim, Simulator::PciAddress{0, Bus, Dev, Func}, 0xABCD1E2D);
        Made.Express(4).Put(0x19, 1, Secondary).Put(0x1A, 1, Subordinate).Put(0x54, 4, SlotCapabilities);
        Made.Function.SetWritable(0x54, 4, 0xFFFFFFFF);
        return Made;
    }
    // Every register write since Forget(), as "space address=value".
    std::vector<std::string> Writes() {
        const std::vector<std::string> Spaces = Events("write", "space"), Addresses = Events("write", "address"),
                                       Values = Events("write", "value");
        std::vector<std::string> All;
        for (std::size_t Index = 0; Index < Spaces.size(); Index++) {
            All.push_back(Spaces[Index] + " " + Addresses[Index] + "=" + Values[Index]);
        }
        return All;
    }

 private:
    static Simulator::Configuration EightHubs(Simulator::Configuration Settings) {
        Settings.RootComplexesPerSocket = 8;
        return Settings;
    }

    std::array<std::array<Simulator::RootComplexFunction*, 8>, 2> Hubs{};
    TestPortMap PortMap;
    std::deque<LaidFunction> Functions;
};
