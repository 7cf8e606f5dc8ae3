// What scenarios say of PCI Express: descriptions that reach the machine, steps that disturb it, and mistakes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Simulator/Scenario/Runner.h"

namespace {

using namespace Simulator;
using testing::HasSubstr;

constexpr char HEAD[] = "name: pcie\nabout: x\n";

TEST(PcieScenario, EveryKeyOfAFunctionReachesItsDescription) {
    const PcieSettings Pcie = ParseScenario(std::string(HEAD) + R"(
machine:
  pcie:
    link-training: 5ms
    probe-logging: all
    ports:
      - root-complex: 3
        port: 7
        cxl-capable: true
        cxl-mode: 2
        name: rp
        device: 9
        function: 2
        surprise-down: true
        link-active-reporting: false
        slot: {number: 12, hot-plug: false, surprise: true, power-controller: true, occupied: false, bay: 2, bay-slot: 5}
        dpc: {trigger: fatal, err-cor: false, interrupt: true, rp-extensions: false, log-size: 9}
        spare-buses: 3
        below:
          - {name: sw, kind: switch-upstream-port, nvme-switch: issw, sfi: true, secondary-pcie: false}
          - name: card
            kind: legacy-endpoint
            vendor-id: 0x1050
            device-id: 0x0750
            subsystem-vendor-id: 1
            subsystem-id: 2
            class: 0xFF0000
            version: 1
            role-based: false
            aer: false
            power-management: false
            serial-number: 0x1122334455667788
            max-payload: 1024
            bars: [{index: 2, size: 0x1000, base: 0xA0000000, 64-bit: true, prefetchable: true}, {index: 0, size: 0, io: true}]
            capabilities: [{id: 0x23, extended: true, version: 2, bytes: 98 1E}]
            registers: [{offset: 0x34, width: 8, value: 0x41}]
)",
                                            "t.yaml")
                                  .Machine.Pcie;
    EXPECT_FALSE(Pcie.IsDefault);
    EXPECT_EQ(Pcie.LinkTraining, 5000u);
    EXPECT_EQ(Pcie.Probes, ProbeLogging::All);
    ASSERT_EQ(Pcie.Ports.size(), 1u);
    const PciePortSetting& Port = Pcie.Ports[0];
    EXPECT_EQ(Port.RootComplex, 3u);
    EXPECT_EQ(Port.Port, 7u);
    EXPECT_TRUE(Port.CxlCapable);
    EXPECT_EQ(Port.CxlMode, 2u);
    EXPECT_EQ(Port.Function.Kind, PcieKind::RootPort);
    EXPECT_EQ(Port.Function.Device, 9u);
    EXPECT_EQ(Port.Function.Function, 2u);
    EXPECT_TRUE(Port.Function.SurpriseDown);
    EXPECT_FALSE(Port.Function.LinkActiveReporting);
    EXPECT_EQ(Port.Function.SpareBuses, 3u);
    const PcieSlotSetting& Slot = *Port.Function.Slot;
    EXPECT_EQ(Slot.Number, 12u);
    EXPECT_TRUE(!Slot.HotPlugCapable && Slot.HotPlugSurprise && Slot.PowerController && !Slot.Occupied);
    EXPECT_TRUE(Slot.IsNvmeBay && Slot.Bay == 2 && Slot.BaySlot == 5);
    const DpcSetting& Dpc = *Port.Function.Dpc;
    EXPECT_TRUE(Dpc.Trigger == 1 && !Dpc.ErrCor && Dpc.Interrupt && !Dpc.RootPortExtensions && Dpc.LogSize == 9);
    const PcieFunctionSetting& Switch = Port.Function.Below.at(0);
    EXPECT_EQ(Switch.Kind, PcieKind::SwitchUpstreamPort);
    EXPECT_EQ(Switch.NvmeSwitchMode, 1u);
    EXPECT_TRUE(Switch.Sfi && !Switch.SecondaryPcie);
    const PcieFunctionSetting& Card = Port.Function.Below.at(1);
    EXPECT_EQ(Card.Kind, PcieKind::LegacyEndpoint);
    EXPECT_EQ(Card.VendorId, 0x1050);
    EXPECT_EQ(Card.DeviceId, 0x0750);
    EXPECT_EQ(Card.SubsystemVendorId, 1);
    EXPECT_EQ(Card.SubsystemId, 2);
    EXPECT_EQ(Card.ClassCode, 0xFF0000u);
    EXPECT_EQ(Card.Version, 1u);
    EXPECT_TRUE(!Card.RoleBased && !Card.Aer && !Card.PowerManagement);
    EXPECT_EQ(Card.SerialNumber, 0x1122334455667788u);
    EXPECT_EQ(Card.MaxPayload, 3u);
    EXPECT_TRUE(Card.Bars.at(0).Index == 2 && Card.Bars[0].Is64 && Card.Bars[0].IsPrefetchable);
    EXPECT_TRUE(Card.Bars.at(1).IsIo && Card.Bars[1].Size == 0);
    EXPECT_TRUE(Card.Capabilities.at(0).IsExtended && Card.Capabilities[0].Bytes.size() == 2);
    EXPECT_TRUE(Card.Registers.at(0).Offset == 0x34 && Card.Registers[0].Width == 1);
}

TEST(PcieScenario, MistakesAreToldWhereTheyStand) {
    const struct {
        const char* Text;
        const char* Says;
    } Cases[] = {
        {"machine: {pcie: {ports: [{kind: bridge}]}}", "t.yaml:3:33: "},
        {"machine: {pcie: {ports: [{below: [{port: 1}]}]}}", "only what lies on a root bus"},
        {"machine: {pcie: {ports: [{max-payload: 200}]}}", "a power of two from 128 to 4096"},
        {"machine: {pcie: {dump: {file: none.lspci}}}", "\"none.lspci\" cannot be read"},
        {"steps: [pcie-error: {at: nic0, error: bad-luck}]", "t.yaml:3:39: "},
        {"steps: [pcie-error: {at: nic0, error: ecrc, header: [1, 2]}]", "four doublewords"},
        {"steps: [pcie-config: {at: nic0, expect: 0}]", "either \"register\" or \"offset\""},
        {"steps: [pcie-config: {at: nic0, register: device-status, offset: 4}]", "either \"register\" or \"offset\""},
        {"steps: [pcie-slot: {at: bay0, act: shake}]", "t.yaml:3:36: "},
        {"steps: [smi: {pending: true}]", "kind"},
        {"steps: [dpc-buffer: {bytes: 00}]", "one of \"entry\", \"aware\" and \"used\""},
        {"steps: [dpc-buffer: {entry: 0, aware: 0, bytes: 00}]", "one of \"entry\", \"aware\" and \"used\""},
        {"steps: [dpc-buffer: {entry: 32, bytes: 00}]", "t.yaml:3:29: "},
        {"steps: [dpc-buffer: {used: 0, bytes: 00}]", "\"used\" has no bytes"},
        {"steps: [dpc-buffer: {aware: 0}]", "\"bytes\" are wanted"},
        {"steps: [os-edr: {clears: all}]", "t.yaml:3:26: "},
        {"steps: [os-ost: {port: nic0, status: 256}]", "t.yaml:3:38: "},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.Text);
        try {
            ParseScenario(std::string(HEAD) + Case.Text, "t.yaml");
            ADD_FAILURE() << "taken";
        } catch (const ScenarioError& Error) {
            EXPECT_THAT(Error.what(), HasSubstr(Case.Says));
        }
    }
}

std::vector<std::string> Misses(const std::string& Steps) {
    std::vector<std::string> All;
    for (const Miss& One :
         RunScenario(ParseScenario(std::string(HEAD) +
                                       "machine: {missing: [gFchSmmApuRasDispatchProtocolGuid]}\nsteps:\n" + Steps,
                                   "t.yaml"))
             .Misses) {
        All.push_back(One.What);
    }
    return All;
}

TEST(PcieScenario, StepsDoAndCheck) {
    const struct {
        const char* Steps;
        const char* Missed;  // nullptr: nothing
    } Cases[] = {
        {"  - pcie-config: {at: nic0, register: vendor-id, expect: 0x1D9B}\n", nullptr},
        {"  - pcie-config: {at: '01:00.1', offset: 0, width: 16, expect: 0x1D9C}\n", "it is 0x1D9B, wanted 0x1D9C"},
        {"  - pcie-config: {at: nic0, register: device-status, expect: 1, mask: 0xE}\n"
         "  - pcie-config: {at: nic0, register: device-status, poke: 0xF}\n"
         "  - pcie-config: {at: nic0, register: device-status, write: 0x6}\n"
         "  - pcie-config: {at: nic0, register: device-status, set: 0x20}\n"
         "  - pcie-config: {at: nic0, register: device-status, clear: 0x8}\n"
         "  - pcie-config: {at: nic0, register: device-status, expect: 0x21}\n",
         nullptr},
        {"  - pcie-error: {at: nic0, error: [bad-tlp, malformed-tlp], tlp: {type: memory-write, address: "
         "0xC0001000}}\n"
         "  - pcie-config: {at: nic0, register: header-log-0, expect: 0x40000001}\n"
         "  - pcie-config: {at: nic0, register: header-log-2, expect: 0xC0001000}\n"
         "  - pcie-config: {at: port0, register: error-source, expect: 0x01000100}\n"
         "  - smi: {kind: root-complex, pending: true}\n",
         nullptr},
        {"  - smi: {kind: root-complex, pending: true}\n", "no source is pending"},
        {"  - pcie-error: {at: nic0, error: data-link-protocol}\n"
         "  - smi: {kind: root-complex, pending: false}\n",
         "a source is pending"},
        {"  - pcie-slot: {at: bay0, act: surprise-remove}\n"
         "  - pcie-config: {at: nvme0, register: vendor-id, expect: 0xFFFF}\n"
         "  - pcie-config: {at: nvme0, register: vendor-id, peek: 0x1D9B}\n"
         "  - pcie-link: {at: bay0, training: 1ms}\n"
         "  - pcie-slot: {at: bay0, act: insert}\n"
         "  - pcie-config: {at: nvme0, register: vendor-id, expect: 0xFFFF}\n"
         "  - wait: 1ms\n"
         "  - pcie-config: {at: nvme0, register: vendor-id, expect: 0x1D9B}\n",
         nullptr},
        {"  - os-edr: {ports: [port0]}\n", "the OS was notified of [], wanted [0000:00:01.0]"},
        {"  - os-dsm: {port: port0, returns: EFI_NOT_FOUND}\n", "it returned EFI_SUCCESS, wanted EFI_NOT_FOUND"},
        {"  - os-ost: {port: port0}\n", "the buffer does not hold the port"},
        {"  - os-dsm: {port: port0}\n"
         "  - dpc-buffer: {aware: 0, bytes: 08 00 01}\n",
         "it is 08 00 00, wanted 08 00 01"},
        {"  - dpc-buffer: {used: 1}\n", "0 entries are in use, wanted 1"},
        {"  - pcie-death: {at: nic0}\n"
         "  - pcie-config: {at: nic0, register: vendor-id, expect: 0xFFFF}\n"
         "  - pcie-death: {at: nic0, revive: true}\n"
         "  - pcie-config: {at: nic0, register: vendor-id, expect: 0x1D9B}\n",
         nullptr},
        {"  - smn: {root-complex: 0, address: 0x13B2027C, write: 6, expect: 6}\n"
         "  - pcie-error: {at: nic0, error: receiver}\n"
         "  - smn: {root-complex: 1, address: 0x13B20024, expect: 1}\n"
         "  - smn: {root-complex: 0, address: 0x13B20024, expect: 2}\n",
         "it is 0x1, wanted 0x2"},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.Steps);
        const std::vector<std::string> Came = Misses(Case.Steps);
        if (Case.Missed == nullptr) {
            EXPECT_THAT(Came, testing::IsEmpty());
        } else {
            EXPECT_THAT(Came, testing::ElementsAre(HasSubstr(Case.Missed)));
        }
    }
    EXPECT_THROW(Misses("  - pcie-error: {at: nobody, error: ecrc}\n"), ScenarioError);
    EXPECT_THROW(Misses("  - pcie-slot: {at: nic0, act: remove}\n"), ScenarioError);
    EXPECT_THROW(Misses("  - pcie-config: {at: nic0, register: dpc-status, expect: 0}\n"), ScenarioError);
    EXPECT_THROW(Misses("  - smn: {root-complex: 0, address: 4}\n"), ScenarioError);
}

}  // namespace
