// A CXL memory device at a fixed place of a simulated machine, whose every register a test can bend.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Include/CxlRegisters.h"
#include "Include/PciDeviceState.h"
#include "Library/RasLib/PciSegment.h"
#include "Simulator/Machine/CxlMemoryDevice.h"
#include "Simulator/Machine/Machine.h"

class CxlFunction {
 public:
    static constexpr UINT8 BUS = 0x1F;
    static constexpr UINT32 ADDRESS = PackPciAddress(0, BUS, 0, 0);
    static constexpr std::uint64_t BAR = 0x200000000000;
    static constexpr std::uint64_t DEVICE = BAR + 0x10000;    // memory device registers
    static constexpr std::uint64_t CACHE_MEM = BAR + 0x1000;  // CXL.cache/CXL.mem block
    static constexpr std::uint64_t BAR_SIZE = 0x400000;
    static constexpr unsigned SERIAL = 0x100, DEVICE_DVSEC = 0x110, LOCATOR = 0x150;  // extended capabilities

    explicit CxlFunction(Simulator::Machine& Hardware, const Simulator::CxlSetting& Setting = {})
        : Hardware(Hardware),
          Config(Hardware.Pci().Add({0, BUS, 0, 0}, std::make_unique<Simulator::PciFunction>())),
          Component(Setting.HasRas),
          Device(
              Setting, [&Hardware] { return Hardware.Now(); },
              [this](unsigned Log, unsigned Mode) { Signals.emplace_back(Log, Mode); }) {
        Blocks.Add(0, Component);
        Blocks.Add(0x10000, Device);
        Component.Patch(Setting.ComponentPatches);
        Hardware.Mmio().MapDevice(BAR, BAR_SIZE, "CXL device", Blocks);
        MakeHeader();
        MakeCapabilities();
    }
    ~CxlFunction() {
        Hardware.Mmio().Unmap(BAR);
    }
    CxlFunction(const CxlFunction&) = delete;
    CxlFunction& operator=(const CxlFunction&) = delete;

    void Set(unsigned Offset, std::uint32_t Value) {
        Config.Poke(Offset, 4, Value);
    }
    std::uint32_t Get(unsigned Offset) const {
        return Config.Peek(Offset, 4);
    }
    // Base address register that software can size.
    void SetBar(unsigned Index, std::uint64_t Base, std::uint64_t Size, std::uint32_t Flags) {
        const std::uint64_t Mask = ~(Size - 1);
        Set(0x10 + 4 * Index, static_cast<std::uint32_t>(Base) | Flags);
        Config.SetWritable(0x10 + 4 * Index, 4, static_cast<std::uint32_t>(Mask) & ~0xFU);
        if ((Flags & 0x4) != 0 && Index < 5) {
            Set(0x14 + 4 * Index, static_cast<std::uint32_t>(Base >> 32));
            Config.SetWritable(0x14 + 4 * Index, 4, static_cast<std::uint32_t>(Mask >> 32));
        }
    }
    void SetDvsec(unsigned Offset, unsigned Next, unsigned Id, unsigned Length, unsigned Vendor = 0x1E98) {
        Set(Offset, Next << 20 | 1 << 16 | 0x0023);
        Set(Offset + 4, Length << 20 | Vendor);
        Config.Poke(Offset + 8, 2, Id);
    }
    // Entry of the register locator.
    void SetLocatorEntry(unsigned Index, unsigned Block, unsigned Bar, std::uint64_t Offset) {
        Set(LOCATOR + 0xC + 8 * Index, static_cast<std::uint32_t>(Offset) | Block << 8 | Bar);
        Set(LOCATOR + 0x10 + 8 * Index, static_cast<std::uint32_t>(Offset >> 32));
    }
    // Configuration space and registers answer no more.
    void Vanish() {
        for (unsigned Offset = 0; Offset < 0x1000; Offset += 4) {
            Set(Offset, 0xFFFFFFFF);
        }
        Hardware.Mmio().MapDevice(BAR, BAR_SIZE, "absent CXL device", Nothing);
    }
    CXL_EVENT_RECORD Event(unsigned Severity, std::uint8_t Mark = 0, EFI_GUID Uuid = GENERAL_MEDIA) const {
        CXL_EVENT_RECORD Made{};
        Made.Uuid = Uuid;
        Made.Length = sizeof(Made);
        Made.Flags[0] = static_cast<UINT8>(Severity);
        Made.Data[0] = Mark;
        return Made;
    }
    void AddEvents(unsigned Severity, unsigned Count) {
        for (unsigned Index = 0; Index < Count; Index++) {
            Device.Logs().Add(Event(Severity, static_cast<std::uint8_t>(Index)), Index);
        }
    }

    // fbcd0a77-c260-417f-85a9-088b1621eba6 with its bytes in the order in which it is written.
    static constexpr EFI_GUID GENERAL_MEDIA{
        0x770ACDFB, 0x60C2, 0x7F41, {0x85, 0xA9, 0x08, 0x8B, 0x16, 0x21, 0xEB, 0xA6}};

    Simulator::Machine& Hardware;
    Simulator::PciFunction& Config;
    Simulator::CxlComponentRegisters Component;
    std::vector<std::pair<unsigned, unsigned>> Signals;
    Simulator::CxlMemoryDevice Device;

 private:
    class AllOnes : public Simulator::MmioDevice {
        std::optional<std::uint64_t> Read(std::uint64_t, unsigned Width) override {
            return UINT64_MAX >> (64 - 8 * Width);
        }
        bool Write(std::uint64_t, unsigned, std::uint64_t) override {
            return true;
        }
    };

    void MakeHeader() {
        Set(0x00, 0x7D341A2B);
        Set(0x04, 0x00100006);
        Set(0x08, 0x05021001);  // CXL memory device
        SetBar(0, BAR, BAR_SIZE, 0x4);
        Set(0x2C, 0x56781A2B);
    }
    void MakeCapabilities() {
        Set(SERIAL, DEVICE_DVSEC << 20 | 1 << 16 | 0x0003);
        Set(SERIAL + 4, 0x89ABCDEF);
        Set(SERIAL + 8, 0x01234567);
        SetDvsec(DEVICE_DVSEC, LOCATOR, 0, 0x3C);
        for (unsigned Index = 3; Index < 15; Index++) {
            Set(DEVICE_DVSEC + 4 * Index, 0xD0000000 + Index);
        }
        SetDvsec(LOCATOR, 0, 8, 0xC + 2 * 8);
        SetLocatorEntry(0, 1, 0, 0);
        SetLocatorEntry(1, 3, 0, 0x10000);
    }

    Simulator::CxlBar Blocks;
    AllOnes Nothing;
};
