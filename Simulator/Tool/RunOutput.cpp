#include "Simulator/Tool/RunOutput.h"

#include <cerrno>
#include <fstream>
#include <iterator>
#include <system_error>

#include "Simulator/Firmware/Names.h"

namespace Simulator {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void Fail(const char* What, const fs::path& File) {
    throw fs::filesystem_error(What, File, std::error_code(errno, std::generic_category()));
}

void WriteFile(const fs::path& File, const void* Data, std::size_t Size) {
    errno = 0;
    std::ofstream Stream(File, std::ios::binary | std::ios::trunc);
    Stream.write(static_cast<const char*>(Data), static_cast<std::streamsize>(Size));
    if (!Stream.flush()) {
        Fail("cannot write", File);
    }
}

}  // namespace

void WriteRun(const fs::path& Folder, const RunResult& Result) {
    const fs::path Records = Folder / "records";
    fs::create_directories(Records);
    for (const fs::directory_entry& Old : fs::directory_iterator(Records)) {
        if (Old.path().extension() == ".cper") {
            fs::remove(Old.path());
        }
    }
    for (std::size_t Index = 0; Index < Result.Records.size(); ++Index) {
        WriteFile(Folder / RecordFileName(Index), Result.Records[Index].data(), Result.Records[Index].size());
    }
    const std::string Lines = Result.Events.ToJsonLines();
    WriteFile(Folder / "journal.jsonl", Lines.data(), Lines.size());
    WriteFile(Folder / "trace.log", Result.TraceLog.data(), Result.TraceLog.size());
    WriteFile(Folder / "sel.raw", Result.SelRaw.data(), Result.SelRaw.size());
    WriteFile(Folder / "ghes.bin", Result.GhesStatusBlock.data(), Result.GhesStatusBlock.size());
}

std::vector<std::uint8_t> ReadFile(const fs::path& File) {
    errno = 0;
    std::ifstream Stream(File, std::ios::binary);
    if (!Stream || fs::is_directory(File)) {
        Fail("cannot read", File);
    }
    return {std::istreambuf_iterator<char>(Stream), {}};
}

}  // namespace Simulator
