// The device registers of a CXL memory device: status, mailboxes and what their commands do (CXL 3.0, sections 8.2.8
// and 8.2.9).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "Simulator/Machine/CxlEventLogs.h"
#include "Simulator/Machine/CxlMailbox.h"
#include "Simulator/Machine/CxlRegisterBlock.h"
#include "Simulator/Machine/CxlSettings.h"

namespace Simulator {

class CxlMemoryDevice : public CxlRegisterBlock {
 public:
    // Notify: as of CxlEventLogs.
    CxlMemoryDevice(const CxlSetting& Setting, CxlMailbox::Clock Now,
                    std::function<void(unsigned Log, unsigned Mode)> Notify);

    // Bytes of the block of such a device.
    static std::uint64_t SizeFor(const CxlSetting& Setting);

    CxlEventLogs& Logs() {
        return Events;
    }
    CxlMailbox& Primary() {
        return *Mailboxes[0];
    }
    // nullptr for a device that has none.
    CxlMailbox* Secondary() {
        return Mailboxes.size() > 1 ? Mailboxes[1].get() : nullptr;
    }

 private:
    struct Capability {
        std::uint32_t Id = 0;
        std::uint32_t Version = 0;
        std::uint64_t Offset = 0;
        std::uint64_t Length = 0;
        CxlMailbox* Mailbox = nullptr;
    };
    void AddCapability(std::uint32_t Id, std::uint32_t Version, std::uint64_t Length, CxlMailbox* Mailbox);
    std::uint32_t ReadRegister(std::uint64_t Offset) override;
    void WriteRegister(std::uint64_t Offset, std::uint32_t Value) override;
    std::uint32_t ReadCapabilities(std::uint64_t Offset) const;
    const Capability* Find(std::uint64_t Offset) const;

    CxlMailbox::Answer Execute(std::size_t PayloadSize, std::uint16_t Opcode, const std::vector<std::uint8_t>& Input);
    CxlMailbox::Answer GetRecords(std::size_t PayloadSize, const std::vector<std::uint8_t>& Input);
    CxlMailbox::Answer ClearRecords(const std::vector<std::uint8_t>& Input);
    CxlMailbox::Answer SetPolicy(const std::vector<std::uint8_t>& Input);
    CxlMailbox::Answer ScanMedia();
    void UpdateBackground();

    CxlMailbox::Clock Now;
    CxlEventLogs Events;
    std::uint64_t BackgroundTime;
    std::uint64_t BackgroundEnds = 0;  // 0: no operation was started
    std::vector<std::unique_ptr<CxlMailbox>> Mailboxes;
    std::vector<Capability> Capabilities;
    std::uint64_t NextOffset;
};

}  // namespace Simulator
