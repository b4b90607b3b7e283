// "Support contact" and "Licenses": the text viewer on the sandbox console.
#include "ScreenTest.h"

#include <chrono>
#include <fstream>
#include <thread>

using namespace ScreenTest;

namespace
{

const int FirstTextRow = 2; // content row 0
const int Visible = 19;     // rows filled at first display
const int BottomRow = 23;

std::vector<std::string> FileLines(const std::string& name)
{
    std::ifstream in(SampleUsbKey() + "/data/" + name);
    std::vector<std::string> lines;
    std::string line;
    while (std::getline(in, line))
        lines.push_back(line);
    return lines;
}

// A line as the viewer shows it: cut to 75 characters, exactly as written
// otherwise, two columns in from the screen's edge, trailing blanks dropped.
std::string Shown(const std::string& line)
{
    const std::string printed = line.substr(0, 75);
    if (printed.empty())
        return "";
    std::string row = "  " + printed;
    return row.substr(0, row.find_last_not_of(' ') + 1);
}

void Pause(int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

class TextViewer : public GuestSuite
{
protected:
    // Rows of the content window, expected from file lines; -1 is a blank row.
    void ExpectText(const std::vector<int>& lineOfRow, const std::vector<std::string>& lines)
    {
        const std::string screen = Screen();
        for (size_t row = 0; row < lineOfRow.size(); ++row)
        {
            const int line = lineOfRow[row];
            EXPECT_EQ(Row(screen, FirstTextRow + static_cast<int>(row)),
                      line < 0 ? std::string() : Shown(lines.at(static_cast<size_t>(line))))
                << "content row " << row << "\n"
                << screen;
        }
    }

    // Sends one key and waits until the screen has taken it.
    void Step(const std::string& key, const std::string& rowText, int row)
    {
        Keys({key});
        ASSERT_TRUE(Guest().WaitForScreen(
            [&](const std::string& screen) { return Row(screen, row) == rowText; }, 10))
            << Screen();
    }

    void LeaveAndExit()
    {
        Keys({"Escape"});
        ASSERT_TRUE(WaitFor("<ENTER> or number to select the operation.")) << Screen();
        Keys({"5"});
        auto status = WaitExit();
        ASSERT_TRUE(status.has_value());
        EXPECT_EQ(*status, 2);
    }
};

} // namespace

TEST_F(TextViewer, ContactsScrollLineByLine)
{
    const auto lines = FileLines("contacts.txt");
    ASSERT_GE(lines.size(), 40u);
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    Keys({"6"});
    ASSERT_TRUE(WaitFor("<ESC> return to main menu, <UP> and <DOWN> to scroll text")) << Screen();
    EXPECT_EQ(Row(Screen(), 1), std::string(36, ' ') + "Contacts");
    EXPECT_EQ(Row(Screen(), BottomRow),
              "  <ESC> return to main menu, <UP> and <DOWN> to scroll text");

    // First display: lines 0..18, the window's last row empty.
    std::vector<int> rows;
    for (int i = 0; i < Visible; ++i)
        rows.push_back(i);
    rows.push_back(-1);
    ExpectText(rows, lines);

    // Up at the top does nothing.
    const std::string top = Screen();
    Keys({"Up"});
    Pause(1500);
    EXPECT_EQ(Screen(), top);

    // Down: the text moves up, the next line lands on the last row and the
    // blank row travels up with the text.
    Step("Down", Shown(lines[19]), FirstTextRow + 19);
    ExpectText({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, -1, 19}, lines);
    Step("Down", Shown(lines[20]), FirstTextRow + 19);
    ExpectText({2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, -1, 19, 20}, lines);

    // Up: the previous line comes back on the first row.
    Step("Up", Shown(lines[1]), FirstTextRow);
    ExpectText({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, -1}, lines);

    LeaveAndExit();
}

TEST_F(TextViewer, LongLinesAreCutAndPercentIsShownAsWritten)
{
    const auto lines = FileLines("contacts.txt");
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    Keys({"6"});
    ASSERT_TRUE(WaitFor("<UP> and <DOWN> to scroll text")) << Screen();
    // Scroll to the end of the file: every down arrow shows one more line.
    const int total = static_cast<int>(lines.size());
    for (int next = Visible; next < total; ++next)
        Step("Down", Shown(lines[static_cast<size_t>(next)]), FirstTextRow + 19);
    // The end of the file: down does nothing more.
    const std::string end = Screen();
    Keys({"Down"});
    Pause(1500);
    EXPECT_EQ(Screen(), end);

    bool sawLong = false, sawPercent = false;
    for (const auto& line : lines)
    {
        if (line.size() > 75)
        {
            sawLong = true;
            EXPECT_NE(end.find(Shown(line).substr(2)), std::string::npos) << line << "\n" << end;
            EXPECT_EQ(end.find(line), std::string::npos) << "not cut: " << line;
        }
        if (line.find('%') != std::string::npos)
        {
            sawPercent = true;
            EXPECT_NE(end.find(Shown(line).substr(2)), std::string::npos) << line << "\n" << end;
        }
    }
    EXPECT_TRUE(sawLong);
    EXPECT_TRUE(sawPercent);
    // The last line of the file sits on the window's last row.
    EXPECT_EQ(Row(end, FirstTextRow + 19), Shown(lines.back()));
    LeaveAndExit();
}

TEST_F(TextViewer, AShortFileHasNoScrollHint)
{
    const auto lines = FileLines("licenses.txt");
    ASSERT_LT(lines.size(), static_cast<size_t>(Visible));
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    Keys({"7"});
    ASSERT_TRUE(WaitFor("Vidorama video server - licenses")) << Screen();
    EXPECT_EQ(Row(Screen(), 1), std::string(36, ' ') + "Licenses");
    EXPECT_EQ(Row(Screen(), BottomRow), "  <ESC> return to main menu");
    std::vector<int> rows;
    for (size_t i = 0; i < lines.size(); ++i)
        rows.push_back(static_cast<int>(i));
    rows.push_back(-1);
    ExpectText(rows, lines);
    const std::string shown = Screen();
    Keys({"Down"});
    Keys({"Up"});
    Pause(1500);
    EXPECT_EQ(Screen(), shown);
    LeaveAndExit();
}

TEST_F(TextViewer, AMissingFileShowsAnEmptyPage)
{
    // From the disk the data path is below /mnt/APPS, which holds nothing here.
    SetKernelCommandLine(DiskCmdline);
    Start(Wizard() + " -i");
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    Keys({"6"});
    ASSERT_TRUE(WaitFor("Contacts")) << Screen();
    ASSERT_TRUE(WaitFor("<ESC> return to main menu")) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, BottomRow), "  <ESC> return to main menu");
    for (int row = FirstTextRow; row < FirstTextRow + 20; ++row)
        EXPECT_EQ(Row(screen, row), "") << screen;
    Keys({"Down"});
    Pause(1000);
    EXPECT_EQ(Screen(), screen);
    LeaveAndExit();
}

TEST_F(TextViewer, ASecondVisitStartsFromTheTopAgain)
{
    const auto lines = FileLines("contacts.txt");
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    Keys({"6"});
    ASSERT_TRUE(WaitFor("<UP> and <DOWN> to scroll text")) << Screen();
    Step("Down", Shown(lines[19]), FirstTextRow + 19);
    Keys({"Escape"});
    ASSERT_TRUE(WaitFor("<ENTER> or number to select the operation.")) << Screen();
    Keys({"6"});
    ASSERT_TRUE(WaitFor("<UP> and <DOWN> to scroll text")) << Screen();
    std::vector<int> rows;
    for (int i = 0; i < Visible; ++i)
        rows.push_back(i);
    rows.push_back(-1);
    ExpectText(rows, lines);
    LeaveAndExit();
}

TEST_F(TextViewer, FormatLikeLinesAreShownAsWritten)
{
    // From the disk the data path is below /mnt/APPS, free for a file of the
    // test's own; it is gone again when the test ends, however it ends.
    struct Cleanup
    {
        Sandbox::Guest& guest;
        ~Cleanup() { guest.Run("rm -rf /mnt/APPS/const"); }
    } cleanup{Guest()};
    const std::vector<std::string> lines = {"Ticket %s%s%s%s", "%n", "%d", "%%",
                                            "100% of calls %x%p are logged"};
    std::string command = "mkdir -p /mnt/APPS/const/maintenance && printf '%s\\n'";
    for (const auto& line : lines)
        command += " '" + line + "'";
    RunInGuest(command + " > /mnt/APPS/const/maintenance/contacts.txt");
    SetKernelCommandLine(DiskCmdline);
    Start(Wizard() + " -i");
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    Keys({"6"});
    ASSERT_TRUE(WaitFor("Ticket %s%s%s%s")) << Screen();
    std::vector<int> rows;
    for (size_t i = 0; i < lines.size(); ++i)
        rows.push_back(static_cast<int>(i));
    rows.push_back(-1);
    ExpectText(rows, lines);
    EXPECT_EQ(Row(Screen(), BottomRow), "  <ESC> return to main menu") << Screen();
    LeaveAndExit();
}
