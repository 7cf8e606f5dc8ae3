// PCIe hierarchies without a machine around them: what hardware does when software and errors come to it.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Simulator/Machine/PcieFabric.h"
#include "Simulator/Machine/RootComplexes.h"

class PcieWorld {
 public:
    explicit PcieWorld(Simulator::PcieSettings Wanted = {}, bool IsFirmwareFirst = true)
        : Settings(std::move(Wanted)), Complexes(Layout(Settings)), Fabric(Settings, Complexes, Space) {
        Fabric.EnableReporting(IsFirmwareFirst);
        Fabric.OsInterrupt = [this](const Simulator::PcieFunction& Port, std::string_view What) {
            Interrupts.push_back(Port.GivenName() + " " + std::string(What));
        };
    }

    Simulator::PcieFunction& operator[](std::string_view Name) {
        Simulator::PcieFunction* Found = Fabric.Find(Name);
        EXPECT_NE(Found, nullptr) << Name;
        return *Found;
    }
    // Software's accesses; Width in bytes.
    std::uint32_t Read(const Simulator::PcieFunction& Function, unsigned Offset, unsigned Width = 4) {
        return Space.Read(Function.Where(), Offset, Width);
    }
    void Write(const Simulator::PcieFunction& Function, unsigned Offset, std::uint32_t Value, unsigned Width = 4) {
        Space.Write(Function.Where(), Offset, Width, Value);
    }
    void Fail(std::string_view At, std::string_view Error, std::optional<Simulator::TlpWords> Header = {},
              bool Advisory = false) {
        for (const Simulator::PcieErrorName& One : Simulator::PcieErrorNames()) {
            if (One.Name == Error) {
                Fabric.Inject((*this)[At], {One.From, One.Bit, Header, Advisory});
                return;
            }
        }
        ADD_FAILURE() << "no error is called " << Error;
    }

    Simulator::PcieSettings Settings;
    Simulator::PciSpace Space;
    std::vector<Simulator::RootComplex> Complexes;
    Simulator::PcieFabric Fabric;
    std::vector<std::string> Interrupts;

 private:
    static std::vector<Simulator::RootComplex> Layout(const Simulator::PcieSettings& Settings) {
        Simulator::Configuration Machine;
        Machine.Pcie = Settings;
        return Simulator::LayOutRootComplexes(Machine);
    }
};

inline Simulator::PcieFunctionSetting Described(std::string Name, Simulator::PcieKind Kind,
                                                std::vector<Simulator::PcieFunctionSetting> Below = {}) {
    Simulator::PcieFunctionSetting Result;
    Result.Name = std::move(Name);
    Result.Kind = Kind;
    Result.Below = std::move(Below);
    return Result;
}

inline Simulator::PcieSettings OnePort(Simulator::PcieFunctionSetting Port) {
    Simulator::PcieSettings Settings;
    Settings.IsDefault = false;
    Settings.Ports.push_back({0, 0, false, 0, std::move(Port)});
    return Settings;
}
