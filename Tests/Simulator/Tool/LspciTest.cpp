// Dumps as a foreign decoder reads them: Debian's lspci.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

std::string OutputOf(const std::string& Command) {
    std::string Text;
    std::FILE* Pipe = popen((Command + " 2>/dev/null").c_str(), "r");
    char Buffer[4096];
    for (std::size_t Got = 0; Pipe != nullptr && (Got = fread(Buffer, 1, sizeof(Buffer), Pipe)) != 0;) {
        Text.append(Buffer, Got);
    }
    return Pipe == nullptr || pclose(Pipe) != 0 ? "" : Text;
}

TEST(Lspci, ReadsTheMachinesDump) {
    if (OutputOf("lspci --version").empty()) {
        GTEST_SKIP() << "lspci is not installed";
    }
    const fs::path Folder = fs::path(testing::TempDir()) / "lspci-test";
    fs::create_directories(Folder);
    std::ofstream(Folder / "dump.yaml") << "name: dump\n"
                                           "about: An error that is left in a drive's registers\n"
                                           "steps:\n"
                                           "  - pcie-error: {at: nvme0, error: bad-tlp}\n";
    const fs::path Dump = Folder / "machine.lspci";
    std::ofstream(Dump) << OutputOf(std::string(RAS_SIM) + " dump " + (Folder / "dump.yaml").string());

    const std::string Tree = OutputOf("lspci -n -t -F " + Dump.string());
    EXPECT_THAT(Tree, HasSubstr("01.0-[01]--+-00.0"));
    EXPECT_THAT(Tree, HasSubstr("02.0-[02-05]----00.0-[03-05]--+-00.0-[04]----00.0"));
    EXPECT_THAT(Tree, HasSubstr("\\-01.0-[05]----00.0"));

    const std::string Drive = OutputOf("lspci -n -vv -s 04:00.0 -F " + Dump.string());
    for (const char* Line : {"Express (v2) Endpoint, MSI 00", "RBE+ FLReset+", "DevSta:\tCorrErr+ NonFatalErr-",
                             "DevCtl:\tCorrErr+ NonFatalErr+ FatalErr+ UnsupReq+", "CESta:\tRxErr- BadTLP+ BadDLLP-",
                             "UESvrt:\tDLP+ SDES+ TLP- FCP+ CmpltTO- CmpltAbrt- UnxCmplt- RxOF+ MalfTLP+ ECRC-",
                             "Device Serial Number 00-11-22-33-44-55-66-00", "Secondary PCI Express"}) {
        EXPECT_THAT(Drive, HasSubstr(Line));
    }
    const std::string Port = OutputOf("lspci -n -vv -s 00:02.0 -F " + Dump.string());
    for (const char* Line :
         {"Bus: primary=00, secondary=02, subordinate=05", "Express (v2) Root Port (Slot-)",
          "RootSta: CERcvd+ MultCERcvd- UERcvd-", "ErrorSrc: ERR_COR: 0400 ERR_FATAL/NONFATAL: 0000",
          "RootCtl: ErrCorrectable+ ErrNon-Fatal+ ErrFatal+", "Downstream Port Containment",
          "DpcCap:\tINT Msg #0, RPExt+ PoisonedTLP- SwTrigger+ RP PIO Log 4"}) {
        EXPECT_THAT(Port, HasSubstr(Line));
    }
    const std::string Bay = OutputOf("lspci -n -vv -s 03:00.0 -F " + Dump.string());
    for (const char* Line : {"Downstream Port (Slot+)", "AttnBtn- PwrCtrl- MRL- AttnInd- PwrInd- HotPlug+ Surprise-",
                             "Slot #16", "PresDet+", "Vendor Specific Information: ID=0001 Rev=1 Len=010"}) {
        EXPECT_THAT(Bay, HasSubstr(Line));
    }
    fs::remove_all(Folder);
}

}  // namespace
