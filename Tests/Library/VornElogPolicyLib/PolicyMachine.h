// A booted machine whose policy engine is called directly, and the records that it is handed.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "Include/ErrorRecordBuffer.h"
#include "Library/VornElogBaseLib/CircularBuffer.h"
#include "Library/VornElogBaseLib/FiniteBuffer.h"
#include "Library/VornElogPolicyLib/ErrorRecordBuffers.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Simulator/Simulation.h"

inline VORN_ELOG_POLICY_PRIVATE_DATA& Policy = mPrivateDataVornElogPolicyLib;

class PolicyMachine {
 public:
    explicit PolicyMachine(Simulator::Configuration Settings = {}) : Sim(std::move(Settings)) {
        Sim.Boot();
        Forget();
    }
    explicit PolicyMachine(bool IsDiagnostic) : PolicyMachine(Mode(IsDiagnostic)) {}

    // Only events from here on count.
    void Forget() {
        Seen = Sim.Events().Events().size();
    }
    // One field of every event of a kind since then; only bodies of the sensor type where one is given.
    std::vector<std::string> Events(const std::string& Kind, const std::string& Field, const char* Prefix = "") {
        std::vector<std::string> Found;
        const auto& All = Sim.Events().Events();
        for (std::size_t At = Seen; At < All.size(); At++) {
            const std::string Value = All[At].Kind == Kind ? All[At].Fields.value(Field, "") : "-";
            if (All[At].Kind == Kind && Value.starts_with(Prefix)) {
                Found.push_back(Value);
            }
        }
        return Found;
    }
    std::vector<std::string> Sel() {
        return Events("sel", "bytes");
    }
    bool Traced(const std::string& Text) {
        return Sim.TraceLog().find(Text) != std::string::npos;
    }
    std::uint64_t Blocks() {
        return Sim.Pool().LiveBlocks;
    }
    // Call number Skip + 1 of the member fails from now on, Times times.
    void Fail(const char* Member, EFI_STATUS Status = EFI_DEVICE_ERROR, std::uint64_t Times = 1000,
              std::uint64_t Skip = 0) {
        Sim.SetFailure(Member, Simulator::Failure{Status, Times, Skip});
    }

    Simulator::Simulation Sim;

 private:
    static Simulator::Configuration Mode(bool IsDiagnostic) {
        Simulator::Configuration Settings;
        if (IsDiagnostic) {
            Settings.Attributes["CorErrLoggingThreshold"] = "Disabled";
        }
        return Settings;
    }
    std::size_t Seen = 0;
};

// A record of one section, and its chipset data.
struct TestRecord {
    TestRecord(const EFI_GUID& Type, UINT32 Severity, std::size_t SectionBytes) : Bytes(200 + SectionBytes) {
        std::memcpy(Cper()->Header.SignatureStart, "CPER", 4);
        Cper()->Header.SectionCount = 1;
        Cper()->Header.ErrorSeverity = Severity;
        Cper()->Header.RecordLength = static_cast<UINT32>(Bytes.size());
        Cper()->Descriptor.SectionOffset = 200;
        Cper()->Descriptor.SectionLength = static_cast<UINT32>(SectionBytes);
        Cper()->Descriptor.SectionType = Type;
    }
    CPER_RECORD* Cper() {
        return reinterpret_cast<CPER_RECORD*>(Bytes.data());
    }
    TestRecord& Put(std::size_t Offset, UINT64 Value, std::size_t Width = 8) {
        std::memcpy(Bytes.data() + Offset, &Value, Width);
        return *this;
    }
    // Past the filing, into a buffer's next slot.
    ERROR_RECORD_BUFFER_ENTRY* Into(BUFFER_HEADER* Buffer) {
        auto* Slot = BufferSlot<ERROR_RECORD_BUFFER_ENTRY>(Buffer, Buffer->Tail++);
        VornElogSmmCopyRecordIntoEntry(Cper(), &Data, 0, Slot);
        return Slot;
    }

    std::vector<UINT8> Bytes;
    KYR_CHIPSET_SUPPORT_DATA Data{};
};

// MCA_STATUS bits, as processor manuals number them.
inline constexpr UINT64 UC = UINT64{1} << 61, PCC = UINT64{1} << 57, TCC = UINT64{1} << 55,
                        TRANSPARENT = UINT64{1} << 52, DEFERRED = UINT64{1} << 44;

struct ProcessorRecord : TestRecord {
    explicit ProcessorRecord(UINT64 Status, UINT64 Address = 0, UINT32 Severity = 2, UINT8 Processor = 0)
        : TestRecord(gCperSectionProcessorSpecificGuid, Severity, 272) {
        Data.MachineCheck.ValidRasMcaErrorInfo = 1;
        Data.MachineCheck.McaBankIndex = 1;
        RasMcaErrorInfo& Info = Data.MachineCheck.RasMcaErrorInfo;
        Info.CpuInfo.ProcessorNumber = Processor;
        Info.McaBankErrorInfo[1].McaBankNumber = 5;
        Info.McaBankErrorInfo[1].McaStatus = UINT64{1} << 63 | Status;
        Info.McaBankErrorInfo[1].McaAddr = Address;
    }
};

struct MemoryRecord : TestRecord {
    // ValidationBits of the section: 0x02 physical address; 0x38 node, card and module.
    MemoryRecord(UINT64 ValidationBits, UINT64 Address, UINT32 Severity)
        : TestRecord(gCperSectionPlatformMemoryGuid, Severity, 80) {
        Data.MachineCheck.ValidRasMcaErrorInfo = 1;
        Put(200, ValidationBits).Put(208, 0x0000000000040400).Put(216, Address);
    }
};
