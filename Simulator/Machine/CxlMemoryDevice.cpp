#include "Simulator/Machine/CxlMemoryDevice.h"

#include <bit>
#include <cstring>
#include <utility>

namespace Simulator {

namespace {

constexpr std::uint64_t FIRST_CAPABILITY = 0x100;
constexpr std::uint64_t CAPABILITY_ALIGNMENT = 0x100;
constexpr std::uint64_t MEMORY_DEVICE_STATUS_LENGTH = 8;
constexpr std::uint32_t MEDIA_READY = 1U << 2;  // media status of the memory device status register
constexpr std::uint32_t MAILBOX_READY = 1U << 4;

constexpr std::uint16_t OPCODE_SCAN_MEDIA = 0x4304;
constexpr std::size_t SCAN_MEDIA_INPUT = 0x11;

std::uint64_t AlignUp(std::uint64_t Value) {
    return (Value + CAPABILITY_ALIGNMENT - 1) / CAPABILITY_ALIGNMENT * CAPABILITY_ALIGNMENT;
}

CxlMailbox::Answer Returns(std::uint16_t ReturnCode) {
    return {ReturnCode, {}};
}

std::uint64_t MailboxLength(const CxlSetting& Setting) {
    return CXL_MAILBOX_PAYLOAD + (std::uint64_t{1} << Setting.PayloadExponent);
}

}  // namespace

std::uint64_t CxlMemoryDevice::SizeFor(const CxlSetting& Setting) {
    const std::uint64_t Mailboxes = Setting.HasSecondaryMailbox ? 2 : 1;
    return std::bit_ceil(FIRST_CAPABILITY + 2 * CAPABILITY_ALIGNMENT + Mailboxes * AlignUp(MailboxLength(Setting)));
}

CxlMemoryDevice::CxlMemoryDevice(const CxlSetting& Setting, CxlMailbox::Clock Clock,
                                 std::function<void(unsigned, unsigned)> Notify)
    : CxlRegisterBlock(SizeFor(Setting)),
      Now(std::move(Clock)),
      Events(Setting.EventLogCapacity, std::move(Notify)),
      BackgroundTime(Setting.BackgroundTime),
      NextOffset(FIRST_CAPABILITY) {
    CXL_EVENT_INTERRUPT_POLICY Policy;
    std::memset(Policy.Settings, static_cast<int>(Setting.EventInterrupts), sizeof(Policy.Settings));
    Events.SetPolicy(Policy);
    for (unsigned Index = 0; Index < (Setting.HasSecondaryMailbox ? 2U : 1U); Index++) {
        const std::size_t PayloadSize = std::size_t{1} << Setting.PayloadExponent;
        Mailboxes.push_back(std::make_unique<CxlMailbox>(
            Setting.PayloadExponent, Setting.CommandTime, Now,
            [this, PayloadSize](std::uint16_t Opcode, const std::vector<std::uint8_t>& Input) {
                return Execute(PayloadSize, Opcode, Input);
            }));
    }
    AddCapability(CxlDeviceCapabilityStatus, 2, CXL_EVENT_STATUS_SIZE, nullptr);
    AddCapability(CxlDeviceCapabilityPrimaryMailbox, 1, Primary().Bytes(), &Primary());
    if (Secondary() != nullptr) {
        AddCapability(CxlDeviceCapabilitySecondaryMailbox, 1, Secondary()->Bytes(), Secondary());
    }
    AddCapability(CxlDeviceCapabilityMemoryDevice, 1, MEMORY_DEVICE_STATUS_LENGTH, nullptr);
    Patch(Setting.DevicePatches);
}

void CxlMemoryDevice::AddCapability(std::uint32_t Id, std::uint32_t Version, std::uint64_t Length,
                                    CxlMailbox* Mailbox) {
    Capabilities.push_back({Id, Version, NextOffset, Length, Mailbox});
    NextOffset = AlignUp(NextOffset + Length);
}

const CxlMemoryDevice::Capability* CxlMemoryDevice::Find(std::uint64_t Offset) const {
    for (const Capability& One : Capabilities) {
        if (Offset >= One.Offset && Offset < One.Offset + One.Length) {
            return &One;
        }
    }
    return nullptr;
}

std::uint32_t CxlMemoryDevice::ReadCapabilities(std::uint64_t Offset) const {
    if (Offset < CXL_DEVICE_CAPABILITY_HEADERS) {
        const std::uint64_t Array = CxlDeviceCapabilityArrayHeader::Id::Of(CxlDeviceCapabilityArray) |
                                    CxlDeviceCapabilityArrayHeader::Version::Of(CXL_DEVICE_CAPABILITY_ARRAY_VERSION) |
                                    CxlDeviceCapabilityArrayHeader::Count::Of(Capabilities.size());
        return Offset < sizeof(Array) ? static_cast<std::uint32_t>(Array >> 8 * Offset) : 0;
    }
    const std::size_t Index = (Offset - CXL_DEVICE_CAPABILITY_HEADERS) / CXL_DEVICE_CAPABILITY_HEADER_SIZE;
    if (Index >= Capabilities.size()) {
        return 0;
    }
    const Capability& One = Capabilities[Index];
    switch (Offset % CXL_DEVICE_CAPABILITY_HEADER_SIZE) {
        case CXL_DEVICE_CAPABILITY_ID_VERSION:
            return CxlDeviceCapabilityIdVersion::Id::Of(One.Id) |
                   CxlDeviceCapabilityIdVersion::Version::Of(One.Version);
        case CXL_DEVICE_CAPABILITY_OFFSET:
            return static_cast<std::uint32_t>(One.Offset);
        case CXL_DEVICE_CAPABILITY_LENGTH:
            return static_cast<std::uint32_t>(One.Length);
        default:
            return 0;
    }
}

std::uint32_t CxlMemoryDevice::ReadRegister(std::uint64_t Offset) {
    UpdateBackground();
    const Capability* Where = Find(Offset);
    if (Where == nullptr) {
        return Offset < FIRST_CAPABILITY ? ReadCapabilities(Offset) : 0;
    }
    const std::uint64_t At = Offset - Where->Offset;
    if (Where->Mailbox != nullptr) {
        return Where->Mailbox->Read(At);
    }
    if (At != 0) {
        return 0;
    }
    return Where->Id == CxlDeviceCapabilityStatus ? static_cast<std::uint32_t>(Events.Status())
                                                  : MEDIA_READY | MAILBOX_READY;
}

void CxlMemoryDevice::WriteRegister(std::uint64_t Offset, std::uint32_t Value) {
    if (const Capability* Where = Find(Offset); Where != nullptr && Where->Mailbox != nullptr) {
        Where->Mailbox->Write(Offset - Where->Offset, Value);
    }
}

CxlMailbox::Answer CxlMemoryDevice::Execute(std::size_t PayloadSize, std::uint16_t Opcode,
                                            const std::vector<std::uint8_t>& Input) {
    const auto Takes = [&](std::size_t Length) { return Input.size() == Length; };
    switch (Opcode) {
        case CxlMbOpGetEventRecords:
            return Takes(1) ? GetRecords(PayloadSize, Input) : Returns(CxlMbInvalidPayloadLength);
        case CxlMbOpClearEventRecords:
            return ClearRecords(Input);
        case CxlMbOpGetEventInterruptPolicy: {
            const auto& Settings = Events.Policy().Settings;
            return Takes(0) ? CxlMailbox::Answer{CxlMbSuccess, {std::begin(Settings), std::end(Settings)}}
                            : Returns(CxlMbInvalidPayloadLength);
        }
        case CxlMbOpSetEventInterruptPolicy:
            return SetPolicy(Input);
        case OPCODE_SCAN_MEDIA:
            return Takes(SCAN_MEDIA_INPUT) ? ScanMedia() : Returns(CxlMbInvalidPayloadLength);
        default:
            return Returns(CxlMbUnsupported);
    }
}

CxlMailbox::Answer CxlMemoryDevice::GetRecords(std::size_t PayloadSize, const std::vector<std::uint8_t>& Input) {
    if (Input[0] >= CXL_EVENT_LOGS) {
        return Returns(CxlMbInvalidInput);
    }
    return {CxlMbSuccess, Events[Input[0]].Get(PayloadSize)};
}

CxlMailbox::Answer CxlMemoryDevice::ClearRecords(const std::vector<std::uint8_t>& Input) {
    CXL_CLEAR_EVENT_RECORDS_INPUT Front;
    if (Input.size() < sizeof(Front)) {
        return Returns(CxlMbInvalidPayloadLength);
    }
    std::memcpy(&Front, Input.data(), sizeof(Front));
    std::vector<std::uint16_t> Handles(Front.NumberOfHandles);
    if (Input.size() != sizeof(Front) + Handles.size() * sizeof(std::uint16_t)) {
        return Returns(CxlMbInvalidPayloadLength);
    }
    if (Front.EventLog >= CXL_EVENT_LOGS) {
        return Returns(CxlMbInvalidInput);
    }
    if (!Handles.empty()) {
        std::memcpy(Handles.data(), Input.data() + sizeof(Front), Handles.size() * sizeof(std::uint16_t));
    }
    return Returns(Events[Front.EventLog].Clear(Front.Flags, Handles));
}

CxlMailbox::Answer CxlMemoryDevice::SetPolicy(const std::vector<std::uint8_t>& Input) {
    CXL_EVENT_INTERRUPT_POLICY Policy;
    if (Input.size() != sizeof(Policy)) {
        return Returns(CxlMbInvalidPayloadLength);
    }
    std::memcpy(&Policy, Input.data(), sizeof(Policy));
    return Returns(Events.SetPolicy(Policy));
}

CxlMailbox::Answer CxlMemoryDevice::ScanMedia() {
    UpdateBackground();
    if (BackgroundEnds > Now()) {
        return Returns(CxlMbBusy);
    }
    BackgroundEnds = Now() + BackgroundTime;
    return Returns(CxlMbBackgroundCommandStarted);
}

void CxlMemoryDevice::UpdateBackground() {
    if (BackgroundEnds == 0) {
        return;
    }
    const bool IsRunning = Now() < BackgroundEnds;
    constexpr unsigned PercentShift = 16;
    const std::uint64_t Register = OPCODE_SCAN_MEDIA | std::uint64_t{IsRunning ? 0U : 100U} << PercentShift;
    for (const auto& One : Mailboxes) {
        One->ShowBackground(IsRunning, Register);
    }
}

}  // namespace Simulator
