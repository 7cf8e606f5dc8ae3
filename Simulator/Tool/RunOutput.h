// What a run leaves in a folder.
#pragma once

#include <filesystem>
#include <vector>

#include "Simulator/Scenario/Runner.h"

namespace Simulator {

// journal.jsonl, trace.log, records/NNNN.cper, sel.raw and ghes.bin; those of an earlier run are replaced. Throws
// std::filesystem::filesystem_error.
void WriteRun(const std::filesystem::path& Folder, const RunResult& Result);

// Throws std::filesystem::filesystem_error.
std::vector<std::uint8_t> ReadFile(const std::filesystem::path& File);

}  // namespace Simulator
