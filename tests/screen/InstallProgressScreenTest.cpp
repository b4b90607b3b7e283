// The progress pop-up of the installation on the sandbox console: while the
// package's own installer reads the package, the pop-up adds how far it has
// come ("Installation in progress 42%"); an installer that does not read its
// package gets the pop-up without a figure. One small disk (partition 1 FAT16,
// partition 2 ext4), packages built in the guest.
#include "ScreenTest.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

using namespace ScreenTest;

namespace
{

// 3 MiB that gzip cannot shrink, read by the installer 64 KiB at a time with a pause after
// each block: the installation takes well over ten seconds. The script then lays out the
// version as an installer does.
const std::string SlowPackage = "/var/tmp/progress/Slow_12.05.01.9.tar.gz";
// The same payload, but an installer that never opens its package.
const std::string BlindPackage = "/var/tmp/progress/Blind_12.05.02.9.tar.gz";

// clang-format off
const std::string MakePackages = R"SH(mkdir -p /var/tmp/progress/slow /var/tmp/progress/blind
cd /var/tmp/progress/slow
head -c 3145728 /dev/urandom > payload.bin
cat > Install.sh <<'SCRIPT'
#!/bin/sh
exec 3<"$1"
while [ "$(dd bs=65536 count=1 <&3 2>/dev/null | wc -c)" -gt 0 ]; do sleep 0.2; done
mkdir -p "$4/$3" && printf '{"name": "%s", "version": "12.05.01", "revision": "9"}\n' "$2" > "$4/$3/Version.json"
SCRIPT
chmod 755 Install.sh
tar -czf ../Slow_12.05.01.9.tar.gz payload.bin Install.sh
cd /var/tmp/progress/blind
cp ../slow/payload.bin .
cat > Install.sh <<'SCRIPT'
#!/bin/sh
sleep 6
mkdir -p "$4/$3" && printf '{"name": "%s", "version": "12.05.02", "revision": "9"}\n' "$2" > "$4/$3/Version.json"
SCRIPT
chmod 755 Install.sh
tar -czf ../Blind_12.05.02.9.tar.gz payload.bin Install.sh
cd /
)SH";
// clang-format on

class InstallProgress : public GuestSuite
{
protected:
    static void SetUpTestSuite()
    {
        auto options = SuiteDefaults();
        options.disks.push_back(NewDiskImage("disk.img", 128ULL << 20));
        options.setupScript += DosAndLinuxPartitions + MakePackages;
        StartGuest(options);
    }

    // Watches the screen until the program ends: every progress row seen, in order.
    std::vector<std::string> WatchProgress(int timeoutSec)
    {
        std::vector<std::string> seen;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSec);
        while (std::chrono::steady_clock::now() < deadline)
        {
            const std::string screen = Screen();
            for (const std::string& row : Rows(screen))
            {
                if (row.find("Installation in progress") != std::string::npos &&
                    (seen.empty() || seen.back() != row))
                {
                    seen.push_back(row);
                }
            }
            // The program opens the file as it starts and writes it as it ends.
            if (!Result().empty())
            {
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
        }
        return seen;
    }
};

// The figure after the pop-up's text, -1 when the row has none.
int Figure(const std::string& row)
{
    static const std::regex figure(R"(Installation in progress (\d{1,3})%)");
    std::smatch match;
    return std::regex_search(row, match, figure) ? std::stoi(match.str(1)) : -1;
}

} // namespace

TEST_F(InstallProgress, AnInstallerReadingItsPackageShowsHowFarItHasCome)
{
    Start(Program("InstallStepsProgram") + " install " + SlowPackage);
    const std::vector<std::string> rows = WatchProgress(300);
    ASSERT_EQ(WaitExit(60).value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1\n");

    std::vector<int> figures;
    for (const std::string& row : rows)
    {
        const int figure = Figure(row);
        if (figure >= 0)
        {
            figures.push_back(figure);
            // The text stays, the figure follows it inside the pop-up's frame.
            EXPECT_NE(row.find("Installation in progress " + std::to_string(figure) + "%"),
                      std::string::npos)
                << row;
            EXPECT_LE(figure, 100) << row;
        }
    }
    ASSERT_GE(figures.size(), 2u) << "figures seen: " << testing::PrintToString(rows);
    for (std::size_t i = 1; i < figures.size(); ++i)
    {
        EXPECT_LE(figures[i - 1], figures[i]) << testing::PrintToString(rows);
    }
    EXPECT_LT(figures.front(), figures.back()) << testing::PrintToString(rows);

    // The installation itself went as before.
    const auto messages = LogMessages();
    EXPECT_NE(std::find(messages.begin(), messages.end(), "0 Installation succeed!"),
              messages.end())
        << Log();
    EXPECT_EQ(Guest().Run("cat /mnt/SYS/Versions/12.05.01.9/Version.json").output,
              "{\"name\": \"Slow\", \"version\": \"12.05.01\", \"revision\": \"9\"}\n");
}

TEST_F(InstallProgress, AnInstallerThatDoesNotReadItsPackageGetsNoFigure)
{
    Start(Program("InstallStepsProgram") + " install " + BlindPackage);
    const std::vector<std::string> rows = WatchProgress(300);
    ASSERT_EQ(WaitExit(60).value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1\n");
    ASSERT_FALSE(rows.empty()) << "the pop-up was never seen";
    for (const std::string& row : rows)
    {
        EXPECT_EQ(Figure(row), -1) << row;
        EXPECT_EQ(row.find('%'), std::string::npos) << row;
    }
    EXPECT_EQ(Guest().Run("test -s /mnt/SYS/Versions/12.05.02.9/Version.json").rc, 0);
}
