#include "Library/VornElogChipsetLib/AddressTranslation.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "Include/DramAddress.h"
#include "Library/RasLib/FabricTopology.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/RasService.h"
#include "Platform/Protocol/SiliconServices.h"
#include "Simulator/Machine/Machine.h"
#include "Simulator/Simulation.h"
#include "Tests/Support/FakeServices.h"
#include "Tests/Support/HexText.h"

namespace {

constexpr UINT8 BANK_INDEX = 3;

// An index/data pair of SMN registers at the head of a bus.
class SmnPort : public Simulator::PciFunction {
 public:
    explicit SmnPort(const std::map<std::uint32_t, std::uint32_t>& Values) : Registers(Values) {
        SetWritable(0xB8, 4, 0xFFFFFFFF);
    }
    std::uint32_t Read(unsigned Offset, unsigned Width) override {
        if (Offset != 0xBC) {
            return PciFunction::Read(Offset, Width);
        }
        const auto Found = Registers.find(Peek(0xB8, 4));
        return Found == Registers.end() ? 0xFFFFFFFF : Found->second;
    }

 private:
    const std::map<std::uint32_t, std::uint32_t>& Registers;
};

// Node n's IO link 0 is bus 0xE8 + n.
const KYR_FABRIC_REGISTER_PROTOCOL Fabric{
    [](UINTN Socket, UINTN Die, UINTN Function, UINTN Offset, UINTN Instance) -> UINT32 {
        const bool IsLink0 = Die == 0 && Function == 0 && Offset == 0xC04 && Instance == 0x20;
        return IsLink0 ? static_cast<UINT32>(0xE8 + Socket) : 0xFFFFFFFF;
    }};

// What the translation service was asked, and what it answers.
struct {
    std::string Asked;
    UINT64 Answer;
} Service;

void DramToNormalized(UINT8 Socket, UINT8 Die, UINT8 Channel, const DRAM_ADDRESS* DramAddress,
                      NORMALIZED_ADDRESS* Address) {
    const UINT8 Place[] = {Socket, Die, Channel};
    Service.Asked += HexText(Place, sizeof(Place)) + " | " + HexText(DramAddress, 12);
    EXPECT_EQ(std::string(24, '\0'), std::string(reinterpret_cast<const char*>(DramAddress->Reserved12), 24));
    Address->NormalizedAddress = Service.Answer;
    Address->Socket = 0x77;
    Address->Die = 0x77;
    Address->UmcChannel = 0x77;
}

class AddressTranslation : public testing::Test {
 protected:
    AddressTranslation() {
        for (unsigned Node = 0; Node < 2; Node++) {
            Machine.Machine().Pci().Add({0, 0xE8 + Node, 0, 0}, std::make_unique<SmnPort>(Registers[Node]));
        }
        Services.Install(gKyrFabricRegisterSmmProtocolGuid, &Fabric);
        EXPECT_EQ(EFI_SUCCESS, FabricTopologyLibConstructor(nullptr, nullptr));
        std::memset(static_cast<void*>(&Scan), 0xEE, sizeof(Scan));
        Scan.CpuInfo.SocketId = 1;
        Scan.CpuInfo.DieId = 2;
        Service = {};
    }

    EFI_STATUS Translate() {
        std::memset(&Address, 0xCC, sizeof(Address));
        return TranslateToNormalizedAddress(&Scan, BANK_INDEX, DramToNormalized, &Address);
    }
    std::string Result() const {
        return HexText(&Address, 11);
    }

    std::map<std::uint32_t, std::uint32_t> Registers[2];
    Simulator::Simulation Machine{Simulator::Configuration{}};
    const EFI_STATUS Booted = Machine.Boot();  // before the hand-made services stand
    FakeServices Services;
    RasMcaErrorInfo Scan;
    MCA_BANK_ERROR_INFO& Bank = Scan.McaBankErrorInfo[BANK_INDEX];
    NORMALIZED_ADDRESS Address{};
};

constexpr UINT64 VAL = 0x8000000000000000;
constexpr UINT64 IN_STATUS = 0x400000000;  // MCA_CONFIG bit 34
constexpr UINT64 UMC6 = 0x0000009600650F00;
const std::string Untouched = "CC CC CC CC CC CC CC CC CC CC CC";

TEST_F(AddressTranslation, TakesTheBanksOwnNormalizedAddress) {
    const struct {
        const char* Name;
        UINT64 Ipid, Config, Status, Addr, DeStat, DeAddr;
        EFI_STATUS Result;
        std::string Address;  // as it lies: address, socket, die, channel
    } Cases[] = {
        {"6 low bits cleared", UMC6, IN_STATUS, VAL | 0x06000000, 0x12345, 0, 0, EFI_SUCCESS,
         "40 23 01 00 00 00 00 00 01 00 06"},
        {"every other bit of the configuration set, of the status clear", UMC6, ~IN_STATUS, VAL | 0x06000000, 0x12345,
         0x0C000000, 0xFEDCBA98765432, EFI_SUCCESS, "00 50 76 98 BA DC FE 00 01 00 06"},
        {"no bit cleared, the top byte dropped", UMC6, IN_STATUS, VAL, 0xFF00000000001FFF, 0x3F000000, ~UINT64{0},
         EFI_SUCCESS, "FF 1F 00 00 00 00 00 00 01 00 06"},
        {"a real corrected DRAM error", 0x0000009600050F00, IN_STATUS, 0xDC2040000400011B, 0x00000007FF7E93C0, 0, 0,
         EFI_SUCCESS, "C0 93 7E FF 07 00 00 00 01 00 00"},
        {"any type of a memory controller", 0x1234009600B50F00, IN_STATUS, VAL, 0x80, 0, 0, EFI_SUCCESS,
         "80 00 00 00 00 00 00 00 01 00 0B"},
        {"no valid error", UMC6, IN_STATUS, ~VAL & ~UINT64{0x3F0000}, 0x80, 0, 0, EFI_UNSUPPORTED, Untouched},
        {"another block", 0x0000001813B17000, IN_STATUS, VAL, 0x80, 0, 0, EFI_UNSUPPORTED, Untouched},
        {"no channel's instance", 0x0000009600C50F00, IN_STATUS, VAL, 0x80, 0, 0, EFI_UNSUPPORTED, Untouched},
        {"extended code 4", UMC6, IN_STATUS, VAL | 0x040000, 0x80, 0, 0, EFI_UNSUPPORTED, Untouched},
        {"extended code 32", UMC6, IN_STATUS, VAL | 0x200000, 0x80, 0, 0, EFI_UNSUPPORTED, Untouched},
    };
    for (const auto& Case : Cases) {
        Bank.McaIpid = Case.Ipid;
        Bank.McaConfig = Case.Config;
        Bank.McaStatus = Case.Status;
        Bank.McaAddr = Case.Addr;
        Bank.McaDeStat = Case.DeStat;
        Bank.McaDeAddr = Case.DeAddr;
        EXPECT_EQ(Case.Result, Translate()) << Case.Name;
        EXPECT_EQ(Case.Address, Result()) << Case.Name;
    }
    EXPECT_EQ("", Service.Asked);
}

TEST_F(AddressTranslation, LetsTheServiceTranslateADramAddress) {
    // Chip select 6's register of channel 6 on the second socket.
    constexpr UINT32 Register = 0x650058;
    const struct {
        UINT32 Config;  // bank-address bits
        UINT64 Answer;
        EFI_STATUS Status;
        std::string Asked, Address;
    } Cases[] = {
        // Group 5, address 2: 5 << 2 | 2.
        {0x0000000C | 0x00100000, 0x0123456789ABCDEF, EFI_SUCCESS, "01 02 06 | 06 16 00 00 CD AB 02 00 00 00 0B 01",
         "EF CD AB 89 67 45 23 01 01 02 06"},
        // No bit for the address: both lie over each other.
        {0x0000000C, 0x40, EFI_SUCCESS, "01 02 06 | 06 07 00 00 CD AB 02 00 00 00 0B 01",
         "40 00 00 00 00 00 00 00 01 02 06"},
        // 5 << 6 | 2 = 0x142: the bank has 8 bits.
        {0x00300000, 0, EFI_SUCCESS, "01 02 06 | 06 42 00 00 CD AB 02 00 00 00 0B 01",
         "00 00 00 00 00 00 00 00 01 02 06"},
        {0x00300000, 0xDEADBEEF9AAB9AA0, EFI_UNSUPPORTED, "01 02 06 | 06 42 00 00 CD AB 02 00 00 00 0B 01",
         "A0 9A AB 9A EF BE AD DE 01 02 06"},
    };
    Bank.McaIpid = UMC6;
    Bank.McaStatus = VAL | 0x080000;
    Bank.McaAddr = 0xFFFFFFFFFF80000 << 4 | 0x5AABCD;  // junk, group 5, address 2, row 0x2ABCD
    Bank.McaSynd = ~UINT64{0xFF} | 0xBE;               // junk, rank multiplier 11, sub-channel 1, chip select 6
    for (const auto& Case : Cases) {
        Service = {"", Case.Answer};
        Registers[1] = {{Register, Case.Config}};
        EXPECT_EQ(Case.Status, Translate());
        EXPECT_EQ(Case.Asked, Service.Asked);
        EXPECT_EQ(Case.Address, Result());
    }

    // A socket that is not there has no register to tell the bank by.
    Service = {};
    Scan.CpuInfo.SocketId = 2;
    EXPECT_EQ(EFI_UNSUPPORTED, Translate());
    EXPECT_EQ("", Service.Asked);
    EXPECT_EQ(Untouched, Result());
}

}  // namespace
