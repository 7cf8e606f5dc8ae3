#include "Simulator/Machine/CxlRegisterBlock.h"

#include <fmt/format.h>

#include <stdexcept>

namespace Simulator {

namespace {

// Capabilities in the CXL.cache/CXL.mem block, as offsets from its start.
constexpr std::uint32_t LINK_CAPABILITY_ID = 4;
constexpr std::uint32_t LINK_OFFSET = 0x80;
constexpr std::uint32_t RAS_OFFSET = 0x100;
constexpr std::uint32_t HDM_DECODER_CAPABILITY_ID = 5;
constexpr std::uint32_t HDM_DECODER_OFFSET = 0x200;

std::uint32_t Entry(std::uint32_t Id, std::uint32_t Version, std::uint32_t Pointer) {
    return CxlCapabilityEntry::Id::Of(Id) | CxlCapabilityEntry::Version::Of(Version) |
           CxlCapabilityEntry::Pointer::Of(Pointer);
}

}  // namespace

std::optional<std::uint64_t> CxlRegisterBlock::Read(std::uint64_t Offset, unsigned Width) {
    if (Offset + Width > Size) {
        return std::nullopt;
    }
    const auto ReadOne = [this](std::uint64_t At) {
        const auto Patched = Patches.find(At);
        return Patched == Patches.end() ? ReadRegister(At) : Patched->second;
    };
    const std::uint64_t Aligned = Offset & ~std::uint64_t{3};
    std::uint64_t Value = ReadOne(Aligned);
    if (Width == 8) {
        Value |= std::uint64_t{ReadOne(Aligned + 4)} << 32;
    }
    return Value >> 8 * (Offset - Aligned);
}

bool CxlRegisterBlock::Write(std::uint64_t Offset, unsigned Width, std::uint64_t Value) {
    if (Offset + Width > Size || Width < 4) {
        return false;
    }
    WriteRegister(Offset, static_cast<std::uint32_t>(Value));
    if (Width == 8) {
        WriteRegister(Offset + 4, static_cast<std::uint32_t>(Value >> 32));
    }
    return true;
}

void CxlRegisterBlock::Patch(const std::vector<CxlRegisterPatch>& Registers) {
    for (const CxlRegisterPatch& One : Registers) {
        if (One.Offset >= Size) {
            throw std::invalid_argument(
                fmt::format("a CXL register block of {} bytes has no register at 0x{:x}", Size, One.Offset));
        }
        Patches[One.Offset] = One.Value;
    }
}

CxlComponentRegisters::CxlComponentRegisters(bool HasRas)
    : CxlRegisterBlock(CXL_COMPONENT_REGISTERS_SIZE), HasRas(HasRas) {
    std::vector<std::uint32_t> Entries = {Entry(LINK_CAPABILITY_ID, 2, LINK_OFFSET)};
    if (HasRas) {
        Entries.push_back(Entry(CxlCapabilityRas, 2, RAS_OFFSET));
    }
    Entries.push_back(Entry(HDM_DECODER_CAPABILITY_ID, 1, HDM_DECODER_OFFSET));
    Fixed[CXL_CACHE_MEM_OFFSET] = CxlCapabilityArrayHeader::Id::Of(CxlCapabilityArray) |
                                  CxlCapabilityArrayHeader::Version::Of(CXL_CAPABILITY_ARRAY_VERSION) |
                                  CxlCapabilityArrayHeader::CacheMemVersion::Of(1) |
                                  CxlCapabilityArrayHeader::Count::Of(static_cast<std::uint32_t>(Entries.size()));
    for (std::size_t Index = 0; Index < Entries.size(); Index++) {
        Fixed[CXL_CACHE_MEM_OFFSET + 4 * (Index + 1)] = Entries[Index];
    }
}

std::uint32_t CxlComponentRegisters::ReadRegister(std::uint64_t Offset) {
    const std::uint64_t InRas = Offset - (CXL_CACHE_MEM_OFFSET + RAS_OFFSET);
    if (HasRas && InRas < CXL_RAS_CAPABILITY_SIZE) {
        return Ras.Read(static_cast<std::uint32_t>(InRas));
    }
    const auto Found = Fixed.find(Offset);
    return Found == Fixed.end() ? 0 : Found->second;
}

void CxlComponentRegisters::WriteRegister(std::uint64_t Offset, std::uint32_t Value) {
    const std::uint64_t InRas = Offset - (CXL_CACHE_MEM_OFFSET + RAS_OFFSET);
    if (HasRas && InRas < CXL_RAS_CAPABILITY_SIZE) {
        Ras.Write(static_cast<std::uint32_t>(InRas), Value);
    }
}

const CxlBar::Part* CxlBar::Find(std::uint64_t Offset, unsigned Width) const {
    for (const Part& One : Blocks) {
        if (Offset >= One.Offset && Offset + Width <= One.Offset + One.Block->Bytes()) {
            return &One;
        }
    }
    return nullptr;
}

std::optional<std::uint64_t> CxlBar::Read(std::uint64_t Offset, unsigned Width) {
    const Part* One = Find(Offset, Width);
    return One == nullptr ? std::nullopt : One->Block->Read(Offset - One->Offset, Width);
}

bool CxlBar::Write(std::uint64_t Offset, unsigned Width, std::uint64_t Value) {
    const Part* One = Find(Offset, Width);
    return One != nullptr && One->Block->Write(Offset - One->Offset, Width, Value);
}

}  // namespace Simulator
