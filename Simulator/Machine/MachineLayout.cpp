// What the machine is built of, and how its physical addresses decode.
#include <fmt/format.h>

#include <bit>
#include <stdexcept>

#include "Include/FabricRegisters.h"
#include "Include/PciDeviceState.h"
#include "Platform/Constants.h"
#include "Platform/Protocol/SiliconServices.h"
#include "Simulator/Machine/Machine.h"
#include "Simulator/Machine/MachineLayout.h"
#include "Simulator/Machine/PciDump.h"

namespace Simulator {

namespace {

constexpr unsigned CORES_PER_COMPLEX = 8;
constexpr std::uint64_t BUS_SIZE = 1 << 20;  // bytes of ECAM
constexpr unsigned FABRIC_DEVICE = 24;       // of the first socket; one device a socket, 8 functions each
constexpr std::uint32_t FABRIC_DEVICE_ID = 0x4B20;
constexpr unsigned FIRST_IO_LINK_INSTANCE = 0x20;
constexpr unsigned FIRST_IOS_INSTANCE = 0x28;
constexpr unsigned IO_LINK_BUS_OFFSET = 0xC04;
constexpr unsigned FABRIC_ID_OFFSET = 0x50;

void Require(bool Holds, const char* What) {
    if (!Holds) {
        throw std::invalid_argument(What);
    }
}

}  // namespace

void Machine::BuildProcessors() {
    Require(Config.Sockets == 1 || Config.Sockets == 2, "sockets: 1 or 2");
    Require(Config.CoresPerSocket >= 1 && Config.CoresPerSocket <= 128, "cores per socket: 1 to 128");
    Require(Config.ThreadsPerCore == 1 || Config.ThreadsPerCore == 2, "threads per core: 1 or 2");
    Require(Config.BanksPerProcessor >= 1 && Config.BanksPerProcessor <= 64, "banks per processor: 1 to 64");
    Require(Config.PciSegments == 1 || Config.PciSegments == 2 || Config.PciSegments == 4, "PCI segments: 1, 2 or 4");
    const unsigned ThreadBits = static_cast<unsigned>(std::bit_width(Config.ThreadsPerCore - 1));
    const unsigned CoreBits = static_cast<unsigned>(std::bit_width(Config.CoresPerSocket - 1));
    const std::uint64_t BusRange = 8 + static_cast<unsigned>(std::bit_width(Config.PciSegments - 1));
    const std::uint64_t MmioCfgBase =
        ECAM_BASE | MmioCfgBaseAddr::BusRange::Of(BusRange) | MmioCfgBaseAddr::Enable::Of(1);
    for (unsigned Socket = 0; Socket < Config.Sockets; Socket++) {
        for (unsigned Core = 0; Core < Config.CoresPerSocket; Core++) {
            for (unsigned Thread = 0; Thread < Config.ThreadsPerCore; Thread++) {
                ProcessorLocation Where;
                Where.Number = ProcessorCount();
                Where.ApicId = (Socket << CoreBits | Core) << ThreadBits | Thread;
                Where.Socket = Socket;
                Where.Ccx = Core / CORES_PER_COMPLEX;
                Where.Core = Core % CORES_PER_COMPLEX;
                Where.CoreOfSocket = Core;
                Where.Thread = Thread;
                Processors.emplace_back(Where, Config.CoresPerSocket * Config.ThreadsPerCore,
                                        Config.BanksPerProcessor, Config.CpuidSignature, MmioCfgBase);
            }
        }
    }
}

void Machine::BuildFabricAndPci() {
    Complexes = LayOutRootComplexes(Config);
    BuildBusRanges();
    DescribeCxl(Config.Pcie);
    Hierarchies = std::make_unique<PcieFabric>(Config.Pcie, Complexes, PciFunctions);
    Hierarchies->OsInterrupt = [this](const PcieFunction& Port, std::string_view What) {
        Note("pcie-interrupt", [&] {
            return nlohmann::ordered_json{{"port", PciAddressText(Port.Where())}, {"source", What}};
        });
    };
    CxlSides = std::make_unique<CxlFabric>(Config.Pcie, *Hierarchies, MmioRegisters, [this] { return Time; });
    CxlSides->OsInterrupt = [this](const PcieFunction& Function, unsigned Log) {
        Note("cxl-interrupt", [&] {
            return nlohmann::ordered_json{{"function", PciAddressText(Function.Where())}, {"log", Hex(Log)}};
        });
    };
    for (const RootComplex& One : Complexes) {
        const PciAddress Where{One.Segment, One.BusBase, 0, 0};
        auto Made = std::make_unique<RootComplexFunction>();
        RootComplexFunction& Function = *Made;
        // A port of another machine may stand in the root complex's place; its registers can still be reached there.
        const PcieFunction* Instead = One.BusBase == 0 && One.Segment == 0 ? nullptr : Hierarchies->Find(Where);
        if (Instead != nullptr && Instead->IsPcie()) {
            HiddenComplexFunctions.push_back(std::move(Made));
        } else {
            PciFunctions.Add(Where, std::move(Made));
        }
        // The PSP's MMIO base, with its enable bit, is seen through every hub of its socket.
        Function.Smn.Map(SMN_PSP_BASE_ADDR_LO, static_cast<std::uint32_t>(PspMmioBase(One.Socket)) | 1);
        for (std::size_t Index = 0; Index < Complexes.size(); Index++) {
            if (Complexes[Index].Socket == One.Socket) {
                Hierarchies->Hub(Index).MapInto(Function.Smn);
            }
        }
        ComplexFunctions.push_back(&Function);
        if (One.Index < 2) {
            FabricRegisterFile.Set(One.Socket, 0, IO_LINK_BUS_OFFSET, FIRST_IO_LINK_INSTANCE + One.Index,
                                   One.BusBase);
        }
        const unsigned Instance = FIRST_IOS_INSTANCE + One.Index;
        FabricRegisterFile.Set(One.Socket, 0, FABRIC_ID_OFFSET, Instance, FabricIdOf(One) << 8 | Instance);
    }
    for (unsigned Socket = 0; Socket < Config.Sockets; Socket++) {
        for (unsigned Number = 0; Number < 8; Number++) {
            auto Function = std::make_unique<PciFunction>();
            Function->Poke(0, 4, (FABRIC_DEVICE_ID + Number) << 16 | PROCESSOR_PCI_VENDOR_ID);
            PciFunctions.Add({0, 0, FABRIC_DEVICE + Socket, Number}, std::move(Function));
        }
    }
}

// Every root complex decodes its buses, as the fabric's registers tell it.
void Machine::BuildBusRanges() {
    for (const RootComplex& One : Complexes) {
        const unsigned Range = One.Socket * 8 + One.Index;
        FabricRegisterFile.Set(0, FABRIC_BUS_RANGE_FUNCTION, static_cast<unsigned>(FabricBusRangeBaseRegister(Range)),
                               FABRIC_INSTANCE_BROADCAST,
                               FabricBusRangeBase::FirstBus::Of(One.BusBase) |
                                   FabricBusRangeBase::Segment::Of(One.Segment) | FabricBusRangeBase::Enable::Of(1));
        FabricRegisterFile.Set(0, FABRIC_BUS_RANGE_FUNCTION,
                               static_cast<unsigned>(FabricBusRangeLimitRegister(Range)), FABRIC_INSTANCE_BROADCAST,
                               FabricBusRangeLimit::LastBus::Of(One.LastBus) |
                                   FabricBusRangeLimit::DestinationSocket::Of(One.Socket) |
                                   FabricBusRangeLimit::DestinationFabricId::Of(FIRST_FABRIC_ID + One.Index));
    }
}

void Machine::BuildMmio() {
    MmioRegisters.Map(FCH_SMI_SOFTWARE_SCI_EN, 8, "FCH software SCI");
    for (unsigned Socket = 0; Socket < Config.Sockets; Socket++) {
        MmioRegisters.Map(PspMmioBase(Socket) + PSP_MAILBOX_OFFSET, PSP_MAILBOX_SIZE, "PSP mailbox");
    }
}

bool Machine::DecodeEcam(std::uint64_t Address, unsigned Width, EcamTarget& Target) const {
    // Configuration space takes no access wider than 32 bits.
    if (Width > 32 || Address < ECAM_BASE || Address >= ECAM_BASE + Config.PciSegments * 256 * BUS_SIZE) {
        return false;
    }
    const std::uint64_t Offset = Address - ECAM_BASE;
    Target.Where.Segment = static_cast<unsigned>(Offset >> 28);
    Target.Where.Bus = Offset >> 20 & 0xFF;
    Target.Where.Device = Offset >> 15 & 0x1F;
    Target.Where.Function = Offset >> 12 & 7;
    Target.Register = Offset & 0xFFF;
    return true;
}

// The function whose index/data pair the access is for; nullptr for any other access.
RootComplexFunction* Machine::SmnPair(const EcamTarget& Target) {
    const bool IsPair = Target.Register == SMN_INDEX_REGISTER || Target.Register == SMN_DATA_REGISTER;
    if (!IsPair || Target.Where.Device != 0 || Target.Where.Function != 0) {
        return nullptr;
    }
    PciFunction* Function = PciFunctions.Find(Target.Where);
    if (Function != nullptr && Function->AsRootComplex() != nullptr) {
        return Function->AsRootComplex();
    }
    for (std::size_t Index = 0; !HiddenComplexFunctions.empty() && Index < Complexes.size(); Index++) {
        if (Complexes[Index].Segment == Target.Where.Segment && Complexes[Index].BusBase == Target.Where.Bus) {
            return ComplexFunctions[Index];
        }
    }
    return nullptr;
}

std::uint64_t Machine::ReadPci(const EcamTarget& Target, unsigned Width) {
    RootComplexFunction* Complex = SmnPair(Target);
    if (Complex != nullptr && Target.Register == SMN_DATA_REGISTER) {
        Accesses.SmnReads++;
        const std::uint32_t Address = Complex->Peek(SMN_INDEX_REGISTER, 4);
        if (const auto Value = Complex->Smn.Read(Address)) {
            return *Value;
        }
        ReportFault(
            fmt::format("the driver reads SMN address 0x{:08X} through segment {} bus 0x{:02X}: nothing is "
                        "mapped there",
                        Address, Target.Where.Segment, Target.Where.Bus));
        return UINT64_MAX >> (64 - Width);
    }
    Accesses.PciReads++;
    return PciFunctions.Read(Target.Where, Target.Register, Width / 8);
}

void Machine::WritePci(const EcamTarget& Target, unsigned Width, std::uint64_t Value) {
    RootComplexFunction* Complex = SmnPair(Target);
    if (Complex != nullptr && Target.Register == SMN_INDEX_REGISTER) {
        Complex->Write(Target.Register, Width / 8, static_cast<std::uint32_t>(Value));
        return;
    }
    if (Complex != nullptr) {
        Accesses.SmnWrites++;
        const std::uint32_t Address = Complex->Peek(SMN_INDEX_REGISTER, 4);
        Note("write", [&] {
            return nlohmann::ordered_json{{"space", "smn"},
                                          {"bus", Hex(Target.Where.Segment << 8 | Target.Where.Bus)},
                                          {"address", Hex(Address)},
                                          {"width", Hex(Width)},
                                          {"value", Hex(Value)}};
        });
        if (!Complex->Smn.Write(Address, static_cast<std::uint32_t>(Value))) {
            ReportFault(
                fmt::format("the driver writes SMN address 0x{:08X} through segment {} bus 0x{:02X}: nothing "
                            "is mapped there",
                            Address, Target.Where.Segment, Target.Where.Bus));
        }
        return;
    }
    Accesses.PciWrites++;
    NoteWrite("pci",
              PackedPciAddress::Segment::Of(Target.Where.Segment) | PackedPciAddress::Bus::Of(Target.Where.Bus) |
                  PackedPciAddress::Device::Of(Target.Where.Device) |
                  PackedPciAddress::Function::Of(Target.Where.Function) |
                  PackedPciAddress::Register::Of(Target.Register),
              Width, Value);
    PciFunctions.Write(Target.Where, Target.Register, Width / 8, static_cast<std::uint32_t>(Value));
}

void Machine::CheckAlignment(std::uint64_t Address, unsigned Width) {
    if (Address % (Width / 8) != 0) {
        ReportFault(fmt::format("the driver accesses {} bits at 0x{:X}: not naturally aligned", Width, Address));
    }
}

std::uint64_t Machine::ReadMmio(std::uint64_t Address, unsigned Width) {
    CheckAlignment(Address, Width);
    EcamTarget Target;
    if (DecodeEcam(Address, Width, Target)) {
        return ReadPci(Target, Width);
    }
    Accesses.MmioReads++;
    if (const auto Value = MmioRegisters.Read(Address, Width / 8)) {
        return *Value;
    }
    if (const auto Value = Hierarchies->ReadMemory(Address, Width / 8)) {
        return *Value;
    }
    ReportFault(fmt::format("the driver reads {} bits at 0x{:X}: nothing is mapped there", Width, Address));
    return UINT64_MAX >> (64 - Width);
}

void Machine::WriteMmio(std::uint64_t Address, unsigned Width, std::uint64_t Value) {
    CheckAlignment(Address, Width);
    EcamTarget Target;
    if (DecodeEcam(Address, Width, Target)) {
        WritePci(Target, Width, Value);
        return;
    }
    Accesses.MmioWrites++;
    NoteWrite("mmio", Address, Width, Value);
    if (!MmioRegisters.Write(Address, Width / 8, Value) && !Hierarchies->WriteMemory(Address, Width / 8, Value)) {
        ReportFault(fmt::format("the driver writes {} bits at 0x{:X}: nothing is mapped there", Width, Address));
    }
}

}  // namespace Simulator
