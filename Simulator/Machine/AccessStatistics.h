// Hardware accesses made by the driver, by kind.
#pragma once

#include <cstdint>

namespace Simulator {

// An access of the SMN index/data pair counts as one SMN access and as nothing else.
struct AccessStatistics {
    std::uint64_t MsrReads = 0, MsrWrites = 0, PciReads = 0, PciWrites = 0, SmnReads = 0, SmnWrites = 0;
    std::uint64_t MmioReads = 0, MmioWrites = 0, IoReads = 0, IoWrites = 0, Cpuids = 0;
};

}  // namespace Simulator
