// The console output streams, on a curses screen whose terminal is a file: the
// window's contents are read back with curses itself, and the file shows what
// reached the terminal and when.
#include "NCursesOutputStream.h"
#include "NCursesRedirectStream.h"

#include "TempDir.h"

#include <gtest/gtest.h>

#include <curses.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>

namespace
{

using Kel::Vidorama::InstallerWizard::NCursesOutputStream;
using Kel::Vidorama::InstallerWizard::NCursesRedirectStream;

// A curses screen of 80x25 on a file, ended and freed when the test ends.
class FileScreen
{
public:
    explicit FileScreen(const std::string& directory) : path(directory + "/terminal")
    {
        output = std::fopen(path.c_str(), "w");
        input = std::fopen("/dev/null", "r");
        screen = newterm("xterm", output, input);
        if (screen != nullptr)
        {
            resizeterm(25, 80);
        }
    }
    ~FileScreen()
    {
        if (screen != nullptr)
        {
            endwin();
            delscreen(screen);
        }
        std::fclose(output);
        std::fclose(input);
    }
    FileScreen(const FileScreen&) = delete;
    FileScreen& operator=(const FileScreen&) = delete;

    bool IsOpen() const { return screen != nullptr; }
    // What has been sent to the terminal so far.
    std::string Sent()
    {
        std::fflush(output);
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

private:
    std::string path;
    FILE* output = nullptr;
    FILE* input = nullptr;
    SCREEN* screen = nullptr;
};

std::string Row(WINDOW* window, int row)
{
    char text[128] = {};
    mvwinnstr(window, row, 0, text, getmaxx(window));
    std::string line = text;
    return line.substr(0, line.find_last_not_of(' ') + 1);
}

class NCursesStreams : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(screen.IsOpen());
        window = newwin(5, 30, 2, 2);
        ASSERT_NE(window, nullptr);
    }
    void TearDown() override { delwin(window); }

    Sandbox::TempDir dir{"/tmp/NCursesStreamsTest-"};
    FileScreen screen{dir.Path()};
    WINDOW* window = nullptr;
};

} // namespace

TEST_F(NCursesStreams, FormattedTextAndNewLinesGoIntoTheWindow)
{
    NCursesOutputStream stream(window);
    stream << "Installing " << 3 << " files" << std::endl << "done";
    EXPECT_EQ(Row(window, 0), "Installing 3 files");
    EXPECT_EQ(Row(window, 1), "done");
}

TEST_F(NCursesStreams, TextReachesTheTerminalOnlyWithTheRefresh)
{
    wrefresh(window);
    NCursesOutputStream stream(window);
    stream << "Hidden until refreshed" << std::flush;
    EXPECT_EQ(screen.Sent().find("Hidden"), std::string::npos);
    wrefresh(window);
    EXPECT_NE(screen.Sent().find("Hidden until refreshed"), std::string::npos);
}

TEST_F(NCursesStreams, TheWindowScrollsOnlyWhenAllowed)
{
    {
        NCursesOutputStream stream(window);
        for (int line = 1; line <= 7; ++line)
        {
            stream << "line " << line << "\n";
        }
    }
    // Without scrolling the cursor stays on the last row, which is written over.
    EXPECT_EQ(Row(window, 0), "line 1");

    werase(window);
    wmove(window, 0, 0);
    scrollok(window, TRUE);
    NCursesOutputStream stream(window);
    for (int line = 1; line <= 7; ++line)
    {
        stream << "line " << line << "\n";
    }
    EXPECT_EQ(Row(window, 0), "line 4");
    EXPECT_EQ(Row(window, 3), "line 7");
}

TEST_F(NCursesStreams, CharactersWithoutNarrowFormBecomeQuestionMarks)
{
    std::wstring wide = L"a\u00e9b";
    Kel::Vidorama::InstallerWizard::BasicNCursesOutbuf<wchar_t> buffer(window);
    std::wostream stream(&buffer);
    stream << wide;
    EXPECT_EQ(Row(window, 0), "a?b");
}

TEST_F(NCursesStreams, RedirectedOutputAppearsWordByWord)
{
    wrefresh(window);
    std::ostringstream target;
    std::streambuf* original = target.rdbuf();
    {
        NCursesRedirectStream redirect(window, target, 0);
        target << "first";
        EXPECT_EQ(screen.Sent().find("first"), std::string::npos)
            << "a word without a blank after it waits";
        target << " second";
        EXPECT_NE(screen.Sent().find("first"), std::string::npos);
        EXPECT_EQ(screen.Sent().find("second"), std::string::npos);
        target << std::flush;
        EXPECT_NE(screen.Sent().find("second"), std::string::npos) << "or an explicit flush";
        target << "\n";
        EXPECT_EQ(Row(window, 0), "first second");
    }
    // The stream has its own buffer back.
    EXPECT_EQ(target.rdbuf(), original);
    target << "after";
    EXPECT_EQ(target.str(), "after");
}

TEST_F(NCursesStreams, RedirectionShowsAttributesAndStartsAtTheTopLeft)
{
    mvwaddstr(window, 3, 5, "old");
    std::ostringstream target;
    NCursesRedirectStream redirect(window, target, A_BOLD);
    target << "bold ";
    EXPECT_EQ(Row(window, 0), "bold");
    EXPECT_NE(mvwinch(window, 0, 0) & A_BOLD, 0u);
}
