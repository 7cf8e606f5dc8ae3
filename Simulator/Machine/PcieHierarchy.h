// Builds the hierarchies of a fabric: functions with their capabilities, bus numbers and memory windows as the boot
// firmware lays them out, or as a dump of another machine has them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Simulator/Machine/PciDump.h"
#include "Simulator/Machine/PcieFabric.h"

namespace Simulator {

class PcieHierarchyBuilder {
 public:
    explicit PcieHierarchyBuilder(PcieFabric& Into) : Fabric(Into) {}

    // Throws std::invalid_argument for what cannot be built.
    void Build();

 private:
    using Bus = std::vector<std::unique_ptr<PcieFunction>>;
    // What is still free of a root complex.
    struct Resources {
        unsigned NextBus = 0, LastBus = 0;
        std::uint64_t Memory = 0, MemoryEnd = 0, Prefetchable = 0, PrefetchableEnd = 0, Io = 0;
        unsigned NextPort = 0;
    };

    void AddPort(const PciePortSetting& Setting);
    PcieFunction& Add(Bus& To, const PcieFunctionSetting& Setting, PcieFunction* Above, std::size_t RootComplex,
                      unsigned Device);
    void AddBelow(PcieFunction& Bridge, const PcieFunctionSetting& Setting, Resources& Here, std::size_t RootComplex);
    void Place(PcieFunction& Function, PcieFunction* Above, std::size_t RootComplex);
    void LayOutBars(PcieFunction& Function, const PcieFunctionSetting& Setting, Resources& Here);
    void FinishFunction(PcieFunction& Function, const PcieFunctionSetting& Setting);
    void FinishPort(PcieFunction& Port, const PcieFunctionSetting& Setting);
    static void MarkMultiFunction(Bus& All);
    static unsigned FreeDevice(const Bus& All, unsigned First);

    void AddDump(const PciDumpSetting& Setting);
    std::size_t RootComplexOf(const PciAddress& Where) const;
    PcieFunction& MakePortFor(const PciAddress& Orphan, unsigned LastBus);
    static unsigned LastBusBehind(const std::vector<DumpedFunction>& Known, const PciAddress& Orphan);
    void AddHubPort(PcieFunction& Function, std::size_t RootComplex, std::optional<unsigned> Number, bool CxlCapable,
                    unsigned CxlMode);

    PcieFabric& Fabric;
    std::vector<Resources> Free;
};

}  // namespace Simulator
