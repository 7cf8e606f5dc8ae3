#include "Simulator/Machine/MemorySystem.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "Include/MemorySlots.h"
#include "Simulator/Machine/Machine.h"

namespace Simulator {

namespace {

constexpr std::uint32_t UMC_INSTANCE_ID = 0x00050F00;  // of channel 0
constexpr unsigned UMC_INSTANCE_SHIFT = 20;            // where the channel's number is added

constexpr unsigned DQ_LINES = 40;  // of a sub-channel: 32 of data, 8 of ECC

// Bus and interconnect errors of memory reads, as the bank codes them.
constexpr std::uint64_t ERROR_CODE_MEMORY = 0x011B;
constexpr std::uint64_t ADDRESS_LSB = 4;
using ScrubbedBit = Field<std::uint64_t, 40>;
// Fixed parts of a syndrome: its length, its priority, and bit 27.
constexpr std::uint64_t SYNDROME_FORM = 0x0A800000;

std::uint64_t StatusOf(MemoryErrorKind Kind) {
    std::uint64_t Status = McaStatus::Val::Of(1) | McaStatus::En::Of(1) | McaStatus::MiscV::Of(1) |
                           McaStatus::AddrV::Of(1) | McaStatus::ErrorCode::Of(ERROR_CODE_MEMORY);
    switch (Kind) {
        case MemoryErrorKind::Corrected:
            return Status | McaStatus::CECC::Of(1) | McaStatus::AddrLsb::Of(ADDRESS_LSB);
        case MemoryErrorKind::Deferred:
            return Status | McaStatus::UECC::Of(1) | McaStatus::Deferred::Of(1) | McaStatus::AddrLsb::Of(ADDRESS_LSB);
        case MemoryErrorKind::Uncorrected:
            return Status | McaStatus::UECC::Of(1) | McaStatus::UC::Of(1) | McaStatus::AddrLsb::Of(ADDRESS_LSB);
        case MemoryErrorKind::RowCheck:
            return Status | McaStatus::CECC::Of(1) | McaStatus::ErrorCodeExt::Of(UmcErrorCodeExt::DRAM_ADDRESS);
    }
    return Status;
}

std::uint64_t SyndromeOf(const MemoryError& Error) {
    const DramLocation& Where = Error.Where;
    std::uint64_t Syndrome = McaSynd::Syndrome::Of(Error.Syndrome) | SYNDROME_FORM |
                             McaSynd::ChipSelect::Of(Where.ChipSelect) | McaSynd::SubChannel::Of(Where.SubChannel) |
                             McaSynd::RankMultiplier::Of(Where.RankMul);
    if (Error.Symbol) {
        return Syndrome | SyndromeSymbol::Of(*Error.Symbol);
    }
    return Syndrome | McaSynd::NO_SYMBOL_DEFERRED_MASK;
}

// The channel of a memory controller's bank; nothing for another bank.
std::optional<unsigned> ChannelOf(std::uint64_t Ipid) {
    const auto Instance = static_cast<std::uint32_t>(McaIpid::InstanceId::Get(Ipid));
    const std::uint32_t Offset = Instance - UMC_INSTANCE_ID;
    if (!McaIpid::IsUmc(Ipid) || Instance < UMC_INSTANCE_ID || Offset % (1u << UMC_INSTANCE_SHIFT) != 0) {
        return std::nullopt;
    }
    return Offset >> UMC_INSTANCE_SHIFT;
}

// Bits of a bank's number less 3, bits of its group, row bits: as far as software needs them to decode addresses.
std::uint32_t AddressConfigOf(bool Present) {
    return Present ? UmcAddressConfig::BankBits::Of(BANK_GROUP_BITS + BANK_ADDRESS_BITS - 3) |
                         UmcAddressConfig::BankGroupBits::Of(BANK_GROUP_BITS)
                   : 0;
}

}  // namespace

MemorySystem::MemorySystem(Machine& Machine) : Hardware(Machine), Addresses(Machine.Settings()) {
    const Configuration& Settings = Hardware.Settings();
    Controllers.resize(Settings.Sockets);
    const auto& Complexes = Hardware.RootComplexes();
    for (unsigned Socket = 0; Socket < Settings.Sockets; Socket++) {
        const auto Hub = std::ranges::find_if(
            Complexes, [Socket](const RootComplex& One) { return One.Socket == Socket && One.Index == 0; });
        SmnSpace& Smn = Hardware.SmnOf(static_cast<std::size_t>(Hub - Complexes.begin()));
        for (unsigned Channel = 0; Channel < Settings.ChannelsPerSocket; Channel++) {
            auto& One = *Controllers[Socket].emplace_back(std::make_unique<MemoryController>(MayScrub));
            One.Configure(Addresses.CapacityOf(Socket, Channel), Settings.Dram.ScrubRate);
            for (unsigned ChipSelect = 0; ChipSelect < UMC_CHIP_SELECTS; ChipSelect++) {
                One.SetAddressConfig(ChipSelect, AddressConfigOf(Addresses.HasRank(Socket, Channel, ChipSelect)));
            }
            if (Settings.Dram.PatrolScrubber) {
                One.EnableScrubber();
            }
            Smn.MapDevice(UmcSmnAddress(Channel, 0), MemoryController::REGISTER_BLOCK, One);
        }
        for (unsigned Channel = Settings.ChannelsPerSocket; Channel < MAX_UMC_CHANNELS; Channel++) {
            Smn.MapDevice(UmcSmnAddress(Channel, 0), MemoryController::REGISTER_BLOCK, SwitchedOff);
        }
    }
}

MachineCheck MemorySystem::Describe(const MemoryError& Error, bool ByScrubber) const {
    const DramLocation& Where = Error.Where;
    MachineCheck Check;
    Check.Processor =
        Where.Socket * Hardware.Settings().CoresPerSocket * Hardware.Settings().ThreadsPerCore;  // the socket's first
    const Processor& Owner = Hardware.ProcessorAt(Check.Processor);
    while (Check.Bank < Owner.BankCount() &&
           ChannelOf(Owner.Bank(Check.Bank).Read(MCA_IPID)).value_or(UINT32_MAX) != Where.Channel) {
        Check.Bank++;
    }
    if (Check.Bank == Owner.BankCount()) {
        throw std::invalid_argument(fmt::format("no machine-check bank belongs to channel {}", Where.Channel));
    }
    Check.Status = StatusOf(Error.Kind) | ScrubbedBit::Of(ByScrubber ? 1 : 0);
    if (Error.Kind == MemoryErrorKind::RowCheck) {
        Check.Addr = McaAddr::DramBankGroup::Of(BankGroupOf(Where.Bank)) |
                     McaAddr::DramBankAddress::Of(BankAddressOf(Where.Bank)) | McaAddr::DramRow::Of(Where.Row);
    } else {
        Check.Addr = Addresses.ToChannel(Where)->Normalized;
    }
    // The counters know the rank even where the bank does not say that it does.
    Check.Synd = SyndromeOf(Error);
    Check.Status |= McaStatus::SyndV::Of(Error.HasSyndrome ? 1 : 0);
    return Check;
}

void MemorySystem::Inject(const MemoryError& Error, std::uint64_t Count) {
    const std::optional<ChannelAddress> Address = Addresses.ToChannel(Error.Where);
    if (!Address) {
        throw std::invalid_argument("no enabled DIMM has that place");
    }
    if (Error.Symbol && !DeviceOfSymbol(*Error.Symbol)) {
        throw std::invalid_argument(fmt::format("a sub-channel has symbols 0 to {}", DQ_LINES - 1));
    }
    const MachineCheck Check = Describe(Error, false);
    for (std::uint64_t Round = 0; Round < Count; Round++) {
        Hardware.LogMachineCheck(Check);
    }
    const auto Known = std::ranges::find_if(BadRows, [&](const BadRow& One) {
        return One.Error.Where == Error.Where && One.Error.Kind == Error.Kind && One.Error.Symbol == Error.Symbol;
    });
    if (!Error.Transient && Known == BadRows.end()) {
        BadRows.push_back({Error, Address->Normalized});
    }
}

std::uint32_t MemorySystem::CountLogged(unsigned Socket, std::uint64_t Ipid, const MachineCheck& Error) {
    const std::optional<unsigned> Channel = ChannelOf(Ipid);
    const bool IsCorrected = McaStatus::CECC::Get(Error.Status) != 0 && McaStatus::UC::Get(Error.Status) == 0 &&
                             McaStatus::Deferred::Get(Error.Status) == 0 &&
                             McaStatus::ErrorCodeExt::Get(Error.Status) == UmcErrorCodeExt::DRAM_ECC;
    if (!Channel || !HasController(Socket, *Channel) || !IsCorrected || !Error.Synd) {
        return 0;
    }
    // The syndrome's fields are wider than the controller's counters are many.
    EccCounter Which;
    Which.SubChannel = static_cast<unsigned>(McaSynd::SubChannel::Get(*Error.Synd));
    Which.ChipSelect = static_cast<unsigned>(McaSynd::ChipSelect::Get(*Error.Synd)) % UMC_CHIP_SELECTS;
    Which.RankMul = static_cast<unsigned>(McaSynd::RankMultiplier::Get(*Error.Synd)) % UMC_RANK_MULTIPLIERS;
    return Controller(Socket, *Channel).Count(Which);
}

void MemorySystem::RepairRow(const DramLocation& Row, DeviceRange Devices) {
    std::erase_if(BadRows, [&](const BadRow& One) {
        if (!IsSameRow(One.Error.Where, Row)) {
            return false;
        }
        // What ECC cannot pin to a device may lie in any: it takes new rows in all of them.
        const DeviceRange Bad =
            One.Error.Symbol ? DeviceRange{*DeviceOfSymbol(*One.Error.Symbol), *DeviceOfSymbol(*One.Error.Symbol)}
                             : DeviceRange{0, DeviceCount() - 1};
        return Bad.First >= Devices.First && Bad.Last <= Devices.Last;
    });
}

std::optional<unsigned> MemorySystem::DeviceOfSymbol(unsigned Symbol) const {
    return Symbol < DQ_LINES ? std::optional(Symbol / Hardware.Settings().Dram.DeviceWidth) : std::nullopt;
}

unsigned MemorySystem::DeviceCount() const {
    return DQ_LINES / Hardware.Settings().Dram.DeviceWidth;
}

void MemorySystem::Advance(std::uint64_t Microseconds) {
    if (!MayScrub) {
        return;
    }
    MayScrub = false;
    for (unsigned Socket = 0; Socket < Controllers.size(); Socket++) {
        for (unsigned Channel = 0; Channel < Controllers[Socket].size(); Channel++) {
            if (Controllers[Socket][Channel]->IsScrubbing()) {
                MayScrub = true;
                Scrub(Socket, Channel, Microseconds);
            }
        }
    }
}

void MemorySystem::Scrub(unsigned Socket, unsigned Channel, std::uint64_t Microseconds) {
    MemoryController& Here = Controller(Socket, Channel);
    const std::uint64_t Capacity = Addresses.CapacityOf(Socket, Channel);
    const std::uint64_t From = Here.ScrubAddress() % Capacity;
    const std::uint64_t Walked = Here.Scrub(Microseconds);
    for (const BadRow& One : BadRows) {
        const DramLocation& Where = One.Error.Where;
        const bool IsHere = Where.Socket == Socket && Where.Channel == Channel;
        if (IsHere && (One.Normalized + Capacity - From) % Capacity < Walked) {
            Hardware.LogMachineCheck(Describe(One.Error, true));
        }
    }
}

}  // namespace Simulator
