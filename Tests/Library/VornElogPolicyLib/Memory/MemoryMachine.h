// A booted machine with one DIMM whose errors are handed to memory accounting directly. The silicon maker's and the
// repair service's answers are the test's; what leaves the driver is told as a story.
#pragma once

#include <fmt/format.h>

#include <cstring>
#include <string>
#include <vector>

#include "Include/Cper.h"
#include "Include/RuntimePpr.h"
#include "Library/RasLib/Globals.h"
#include "Library/VornElogPolicyLib/Memory/PostProcessCorrectedMemory.h"
#include "Library/VornElogPolicyLib/Memory/RowHistory.h"
#include "Library/VornElogPolicyLib/Notification/Cleanup.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Platform/Protocol/VendorServices.h"
#include "Simulator/Machine/Machine.h"
#include "Tests/Support/BootedSimulation.h"

using Story = std::vector<std::string>;

// A corrected ECC error of socket 1, channel 4, DIMM 1, rank 0.
struct MemoryError {
    MemoryError() : Bytes(280) {
        CPER_RECORD_HEADER& Header = Cper()->Header;
        std::memcpy(Header.SignatureStart, "CPER", 4);
        Header.SignatureEnd = 0xFFFFFFFF;
        Header.Revision = CPER_REVISION;
        Header.SectionCount = 1;
        Header.ErrorSeverity = CperSeverityCorrected;
        Header.RecordLength = 280;
        Cper()->Descriptor.SectionOffset = 200;
        Cper()->Descriptor.SectionLength = 80;
        Cper()->Descriptor.SectionType = gCperSectionPlatformMemoryGuid;
        std::memcpy(Cper()->Descriptor.FruString, "DIMM_B10", 9);
        CPER_MEMORY_SECTION& Section = *CperSection<CPER_MEMORY_SECTION>(Cper());
        Section.ValidationBits = 0x803A;  // address, node, card, module, rank
        Section.PhysicalAddress = 0x45670000C0;
        Section.Node = 1;
        Section.Card = 4;
        Section.Module = 1;
        At(0);

        MACHINE_CHECK_SUPPORT_DATA& Check = Data.MachineCheck;
        Check.ValidRasMcaErrorInfo = 1;
        Check.ValidNormalizedAddressInfoPsp = 1;
        Check.McaBankIndex = 1;
        Check.NormalizedAddressInfo.NormalizedAddress = 0x123456780;
        Check.NormalizedAddressInfo.Socket = 1;
        Check.NormalizedAddressInfo.UmcChannel = 4;
        Check.DimmInfo.ValidBits = 1;
        Check.DimmInfo.ChipSelect = 2;
        Check.DimmInfo.Bank = 0x0D;
        Check.DimmInfo.Row = 0x2ABCD;
        Check.DimmInfo.Column = 0x3F8;
        Check.DimmInfo.RankMul = 5;
        Check.DimmInfo.SubChannel = 1;
        Check.DimmInfo.DimmOnCh = 1;
        Check.DimmInfo.BankGroup = 3;
        Check.DimmInfo.BankAddress = 2;
        Check.UmcCeccPfaThresholdData.EccErrCntDelta = 1;
        Check.RasMcaErrorInfo.McaBankCount = 2;
        Bank().McaBankNumber = 17;
        Bank().McaStatus = 0x9C2040000000011B;
        Bank().McaIpid = 0x0000009600450F00;
    }
    MemoryError& At(unsigned SecondsPastNoon) {
        Cper()->Header.TimeStamp = {static_cast<UINT8>(SecondsPastNoon % 60),
                                    static_cast<UINT8>(SecondsPastNoon / 60 % 60),
                                    static_cast<UINT8>(12 + SecondsPastNoon / 3600),
                                    1,
                                    24,
                                    11,
                                    26,
                                    20};
        return *this;
    }
    MemoryError& Errors(UINT16 Delta) {
        Data.MachineCheck.UmcCeccPfaThresholdData.EccErrCntDelta = Delta;
        return *this;
    }
    MemoryError& Row(UINT32 Row) {
        Data.MachineCheck.DimmInfo.Row = Row;
        return *this;
    }
    CPER_RECORD* Cper() {
        return reinterpret_cast<CPER_RECORD*>(Bytes.data());
    }
    CPER_MEMORY_SECTION& Section() {
        return *CperSection<CPER_MEMORY_SECTION>(Cper());
    }
    MCA_BANK_ERROR_INFO& Bank() {
        return Data.MachineCheck.RasMcaErrorInfo.McaBankErrorInfo[1];
    }

    std::vector<UINT8> Bytes;
    KYR_CHIPSET_SUPPORT_DATA Data{};
};

class MemoryMachine {
 public:
    explicit MemoryMachine(UINT32 Threshold = 100, Simulator::Configuration Settings = {})
        : Sim(std::move(Settings)) {
        Current = this;
        Dimm = &mPrivateDataVornElogPolicyLib.DimmData[1][4][1];
        Dimm->Flags = {1, 1, 0};
        Dimm->CeccPfaData.SwThresholdCount = Threshold;
        Dimm->DimmIndex = 20;
        mPrivateDataVornElogPolicyLib.MemErrLocation = {1, 4, 1, 0};
        Ras = *mKyrRasServiceSmmProtocol;
        mKyrRasServiceSmmProtocol = mPrivateDataVornElogPolicyLib.pKyrRasServiceSmmProtocol = &Ras;
        Ras.MapSymbolToDramDevice = [](const KYR_RAS_SERVICE_SMM_PROTOCOL*, const RasMcaErrorInfo*,
                                       const NORMALIZED_ADDRESS*, UINT8, UINT32* Start, UINT32* End, UINT8*) {
            *Start = Current->DeviceStart;
            *End = Current->DeviceStart + 1;
            return Current->MapStatus;
        };
        Ras.CorrectedErrorCounterPerDimmDisable = [](UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm) {
            return Current->Tell(fmt::format("counters off {} {} {}", Socket, UmcChannel, Dimm));
        };
        Ppr.KyrPostPackageRepairSupported = [](const KYR_CHIPSET_SUPPORT_DATA*, BOOLEAN* Supported) {
            *Supported = TRUE;
            return EFI_SUCCESS;
        };
        Ppr.VornPostPackageCreateEntry = [](const KYR_CHIPSET_SUPPORT_DATA* Data, UINT16 Type, BOOLEAN Runtime,
                                            const RB_BUS_MAP* Map, BOOLEAN* AtLeastOne) {
            EXPECT_EQ(Map, mRbBusMap);
            *AtLeastOne = TRUE;
            Current->Tell(fmt::format("ppr {} row {:x}{}", Type, Data->MachineCheck.DimmInfo.Row,
                                      Runtime ? " at run time" : ""));
            return EFI_SUCCESS;
        };
        Ppr.VornPostPackageRepairUpdateToUefiVariable = [] {
            Current->Tell("ppr saved");
            return EFI_SUCCESS;
        };
        mPrivateDataVornElogPolicyLib.pVornKyrMemoryPPRSmmProtocol = &Ppr;
        TakeStory();
    }

    RANK_DATA& Rank(unsigned Number = 0) {
        return Dimm->Rank[Number];
    }
    EFI_STATUS Tell(const std::string& Text) {
        Sim->Machine().Note("fake", [&] { return nlohmann::ordered_json{{"text", Text}}; });
        return EFI_SUCCESS;
    }
    // One SMI with one corrected error. The flag is what the post-processing asks for.
    Story Post(MemoryError& Error, BOOLEAN* Flag = nullptr) {
        BOOLEAN Own = 7;
        VornElogSmmPostProcessErrorRecordCorrectedMemory(Error.Cper(), &Error.Data, Flag == nullptr ? &Own : Flag);
        VornElogSmmPostProcessCleanup();
        return TakeStory();
    }
    // What left the driver since the last story.
    Story TakeStory() {
        Story Lines;
        const auto& All = Sim->Events().Events();
        for (; Seen < All.size(); Seen++) {
            const std::string Line = LineOf(All[Seen]);
            if (!Line.empty()) {
                Lines.push_back(Line);
            }
        }
        return Lines;
    }
    // Rows in the DIMM's history.
    std::size_t Rows() const {
        std::size_t Count = 0;
        const LIST_ENTRY* Head = Dimm->pUniqueRowIdentifierList;
        for (const LIST_ENTRY* Link = Head->ForwardLink; Link != Head; Link = Link->ForwardLink) {
            Count++;
        }
        return Count;
    }

    BootedSimulation Sim;
    DIMM_DATA* Dimm;
    KYR_RAS_SERVICE_SMM_PROTOCOL Ras{};
    VORN_KYR_MEMORY_PPR_SMM_PROTOCOL Ppr{};
    UINT32 DeviceStart = 6;
    EFI_STATUS MapStatus = EFI_SUCCESS;

 private:
    static std::string LineOf(const Simulator::Event& One) {
        const auto Text = [&One](const char* Field) { return One.Fields.at(Field).get<std::string>(); };
        if (One.Kind == "sel") {
            return "sel " + Text("bytes");
        }
        if (One.Kind == "health") {
            return "health " + Text("bytes").substr(17 * 3, 2);
        }
        if (One.Kind == "page-retire") {
            return "retire " + Text("address") + " at " + Text("threshold");
        }
        if (One.Kind == "ghes-log") {
            return "ghes " + Text("status");
        }
        if (One.Kind == "sci") {
            return "sci " + Text("cause");
        }
        return One.Kind == "fake" ? Text("text") : "";
    }

    static inline MemoryMachine* Current = nullptr;
    std::size_t Seen = 0;
};
