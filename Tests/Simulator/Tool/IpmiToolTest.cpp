// sel.raw as a foreign decoder reads it: Debian's ipmitool.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <sstream>
#include <thread>

#include "Simulator/Scenario/Runner.h"
#include "Simulator/Tool/RunOutput.h"

namespace {

namespace fs = std::filesystem;

// ipmitool opens an interface to a management controller even to read a file. Its dummy interface speaks over a
// socket; this controller knows no command and says so.
class SilentController {
 public:
    explicit SilentController(const fs::path& Path) : Listener(socket(AF_UNIX, SOCK_STREAM, 0)) {
        sockaddr_un Address{};
        Address.sun_family = AF_UNIX;
        std::strncpy(Address.sun_path, Path.c_str(), sizeof(Address.sun_path) - 1);
        Ready = bind(Listener, reinterpret_cast<const sockaddr*>(&Address), sizeof(Address)) == 0 &&
                listen(Listener, 1) == 0;
        Server = std::thread([this] { Serve(); });
    }
    ~SilentController() {
        shutdown(Listener, SHUT_RDWR);
        Server.join();
        close(Listener);
    }
    bool Ready = false;

 private:
    struct Request {
        std::uint8_t NetFn, Lun, Command, TargetCommand;
        std::uint16_t DataLength;
        std::uint8_t* Data;
    };
    struct Response {
        std::uint8_t NetFn, Command, Sequence, Lun;
        std::uint8_t CompletionCode;
        int DataLength;
        std::uint8_t* Data;
    };

    static bool ReceiveAll(int Connection, void* Into, std::size_t Size) {
        return recv(Connection, Into, Size, MSG_WAITALL) == static_cast<ssize_t>(Size);
    }

    void Serve() const {
        const int Connection = accept(Listener, nullptr, nullptr);
        if (Connection < 0) {
            return;
        }
        Request Asked{};
        std::uint8_t Ignored[UINT16_MAX];
        while (ReceiveAll(Connection, &Asked, sizeof(Asked)) &&
               (Asked.DataLength == 0 || ReceiveAll(Connection, Ignored, Asked.DataLength))) {
            Response Answer{};
            Answer.NetFn = Asked.NetFn | 1;
            Answer.Command = Asked.Command;
            Answer.Lun = Asked.Lun;
            Answer.CompletionCode = 0xC1;  // invalid command
            if (send(Connection, &Answer, sizeof(Answer), MSG_NOSIGNAL) < 0) {
                break;
            }
        }
        close(Connection);
    }

    int Listener;
    std::thread Server;
};

std::string Output(const std::string& Command) {
    std::string Text;
    FILE* Pipe = popen(Command.c_str(), "r");
    char Buffer[4096];
    while (Pipe && std::fgets(Buffer, sizeof(Buffer), Pipe)) {
        Text += Buffer;
    }
    if (Pipe) {
        pclose(Pipe);
    }
    return Text;
}

// "name : value" lines, a blank line behind each record.
std::vector<std::map<std::string, std::string>> Records(const std::string& Text) {
    std::vector<std::map<std::string, std::string>> Result;
    std::istringstream Lines(Text);
    for (std::string Line; std::getline(Lines, Line);) {
        const std::size_t Colon = Line.find(" : ");
        if (Colon == Line.npos) {
            continue;
        }
        const std::size_t Begin = Line.find_first_not_of(' ');
        const std::string Name = Line.substr(Begin, Line.find_last_not_of(' ', Colon) - Begin + 1);
        if (Name == "SEL Record ID") {
            Result.emplace_back();
        }
        if (!Result.empty()) {
            Result.back()[Name] = Line.substr(Colon + 3);
        }
    }
    return Result;
}

TEST(IpmiTool, ReadsTheEventLogOfARun) {
    if (Output("command -v ipmitool").empty()) {
        GTEST_SKIP() << "ipmitool is not installed: the event log is not read by a foreign decoder";
    }
    const Simulator::RunResult Result =
        RunScenario(Simulator::LoadScenario(fs::path(SCENARIO_FOLDER) / "corrected-load-store.yaml"));
    const fs::path Folder = fs::temp_directory_path() / ("ipmitool-test-" + std::to_string(getpid()));
    WriteRun(Folder, Result);
    std::string Text;
    {
        const SilentController Controller(Folder / "socket");
        ASSERT_TRUE(Controller.Ready);
        Text = Output("TZ=UTC IPMI_DUMMY_SOCK=" + (Folder / "socket").string() +
                      " ipmitool -v -I dummy sel readraw " + (Folder / "sel.raw").string() + " 2>/dev/null");
    }
    fs::remove_all(Folder);

    const std::vector<std::map<std::string, std::string>> Read = Records(Text);
    ASSERT_EQ(Read.size(), 33u) << Text;
    // By hand: a corrected machine check of socket 0, APIC ID 5; then the first event of the thread's location.
    const std::map<std::string, std::string> Wanted[] = {
        {{"SEL Record ID", "0001"},
         {"Record Type", "02"},
         {"Timestamp", "11/24/26 11/24/26"},
         {"Generator ID", "0020"},
         {"EvM Revision", "04"},
         {"Sensor Type", "Processor"},
         {"Sensor Number", "3c"},
         {"Event Type", "Sensor-specific Discrete"},
         {"Event Direction", "Assertion Event"},
         {"Event Data", "ac0105"},
         {"Description", "Correctable machine check error"}},
        {{"SEL Record ID", "0002"}, {"Sensor Number", "28"}, {"Event Type", "OEM"}, {"Event Data", "050000"}},
    };
    for (std::size_t Index = 0; Index < std::size(Wanted); ++Index) {
        for (const auto& [Name, Value] : Wanted[Index]) {
            const auto Found = Read[Index].find(Name);
            EXPECT_EQ(Found == Read[Index].end() ? "absent" : Found->second, Value) << Index << ", " << Name;
        }
    }
}

}  // namespace
