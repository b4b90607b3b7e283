// The network form without a keyboard or a disk: the trimming helpers, and the
// form itself on a curses screen whose terminal is a file, fed with scripted
// keys. The window contents are read back with curses; nothing is mounted or
// saved.
#include "NetworkStep.h"
#include "EepromReader.h"
#include "InstallPackage.h"

#include "FileScreen.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <curses.h>
#include <form.h>

#include <cstdio>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace
{

using Kel::Vidorama::InstallerLib::EepromReader;
using Kel::Vidorama::InstallerLib::InstallPackage;
using Kel::Vidorama::InstallerWizard::NetworkStep;

std::string Trimmed(const char* text, bool ipAddress)
{
    std::vector<char> buffer(text, text + std::strlen(text) + 1);
    if (ipAddress)
        NetworkStep::TrimIpAddress(buffer.data());
    else
        NetworkStep::TrimValue(buffer.data());
    return buffer.data();
}

TEST(NetworkStepTrim, ValueLosesLeadingAndTrailingBlanks)
{
    EXPECT_EQ(Trimmed(" abc ", false), "abc");
    EXPECT_EQ(Trimmed("\t a b \n", false), "a b");
    EXPECT_EQ(Trimmed("abc", false), "abc");
    EXPECT_EQ(Trimmed("   ", false), "");
    EXPECT_EQ(Trimmed("", false), "");
    NetworkStep::TrimValue(nullptr);
}

TEST(NetworkStepTrim, AddressLosesPaddingAndLeadingZeros)
{
    EXPECT_EQ(Trimmed("  192.168.001.010 ", true), "192.168.1.10");
    EXPECT_EQ(Trimmed("010.000.000.001", true), "10.0.0.1");
    EXPECT_EQ(Trimmed("1.2.3.4", true), "1.2.3.4");
    EXPECT_EQ(Trimmed("255.255.255.0         ", true), "255.255.255.0");
}

TEST(NetworkStepTrim, AnythingElseIsOnlyTrimmed)
{
    EXPECT_EQ(Trimmed(" abc ", true), "abc");
    EXPECT_EQ(Trimmed(" 1.2.3 ", true), "1.2.3");
    EXPECT_EQ(Trimmed(" 001.2.3 ", true), "001.2.3");
    EXPECT_EQ(Trimmed("", true), "");
    EXPECT_EQ(Trimmed("    ", true), "");
    NetworkStep::TrimIpAddress(nullptr);
}

TEST(NetworkStepTrim, AnAddressNeverGrows)
{
    // Read back as an int, the first number would be longer than typed.
    EXPECT_EQ(Trimmed("2147483648.1.1.1", true), "2147483648.1.1.1");
}

// A curses screen of 80x25 on a file, ended and freed when the test ends.
class FileScreen
{
public:
    explicit FileScreen(const std::string& directory)
    {
        output = std::fopen((directory + "/terminal").c_str(), "w");
        input = std::fopen("/dev/null", "r");
        screen = newterm("xterm", output, input);
        if (screen != nullptr)
        {
            resizeterm(25, 80);
            start_color();
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

private:
    FILE* output = nullptr;
    FILE* input = nullptr;
    SCREEN* screen = nullptr;
};

// Thrown by the key script when it has no key left: the only way out of a
// form that has not been given a valid entry.
struct ScriptEnd
{
};

// The step with its form driven by a key script. Checks placed between the
// keys run when the form asks for the next key, that is once the keys before
// them have been handled.
class ScriptedStep : public NetworkStep
{
public:
    enum Field
    {
        Hostname,
        Mode,
        IpAddress,
        NetMask,
        Gateway,
        PrimaryDns,
        SecondaryDns,
        Domain
    };

    explicit ScriptedStep(EepromReader& reader) : NetworkStep(reader) {}
    ~ScriptedStep() override
    {
        ReleaseNetworkForm();
        DestroyWindow();
    }

    void Linux() { SetPackage(std::make_shared<InstallPackage>("Vidorama_12.05.01.3456.tar.gz")); }
    void Dos() { SetPackage(std::make_shared<InstallPackage>("120501.zip")); }

    // What the reading would have found.
    void Read(const std::string& name, const std::string& method, const std::string& address,
              const std::string& mask, const std::string& gateway, const std::string& primary,
              const std::string& secondary, const std::string& domain)
    {
        hostname = name;
        pcLan1.method = method;
        pcLan1.address = address;
        pcLan1.netmask = mask;
        pcLan1.gateway = gateway;
        dns.primaryServer = primary;
        dns.secondaryServer = secondary;
        dns.domain = domain;
    }
    void ReadStatic()
    {
        Read("server-1", "static", "192.168.1.1", "255.255.255.0", "192.168.1.254", "192.168.1.254",
             "0.0.0.0", "example.com");
    }

    void Keys(std::initializer_list<int> keys)
    {
        for (int key : keys)
            script.push_back({key, nullptr});
    }
    void Type(const std::string& text)
    {
        for (char c : text)
            script.push_back({static_cast<unsigned char>(c), nullptr});
    }
    void Erase(int count)
    {
        for (int i = 0; i < count; ++i)
            script.push_back({KEY_BACKSPACE, nullptr});
    }
    void Then(std::function<void()> check) { script.push_back({0, std::move(check)}); }

    // True when the form was left with a valid entry; false when the script
    // ran out first (the form is then still there to be looked at).
    bool RunForm()
    {
        CreateWindow();
        try
        {
            accepted = CreateNetworkForm();
            return true;
        }
        catch (const ScriptEnd&)
        {
            return false;
        }
    }

    // A row of the step window, without trailing blanks; the cursor is left
    // where it was.
    std::string Row(int row) const
    {
        int y = 0;
        int x = 0;
        getyx(_contentWindow, y, x);
        char text[256] = {};
        mvwinnstr(_contentWindow, row, 0, text, getmaxx(_contentWindow));
        wmove(_contentWindow, y, x);
        std::string line = text;
        const size_t end = line.find_last_not_of(' ');
        return end == std::string::npos ? "" : line.substr(0, end + 1);
    }
    std::vector<std::string> Rows(int first, int count) const
    {
        std::vector<std::string> rows;
        for (int row = first; row < first + count; ++row)
            rows.push_back(Row(row));
        return rows;
    }
    // The message window's rows, as they sit in the step window.
    std::vector<std::string> Messages() const
    {
        std::vector<std::string> rows;
        for (const auto& row : Rows(10, 10))
            rows.push_back(row.size() > 6 ? row.substr(6) : "");
        while (!rows.empty() && rows.back().empty())
            rows.pop_back();
        return rows;
    }

    // The field's buffer, which curses brings up to date with the window only
    // when the field is validated or left.
    std::string Buffer(Field field) const { return field_buffer(fields[field], 0); }
    bool IsCurrent(Field field) const { return current_field(form) == fields[field]; }
    bool IsVisible(int index) const { return (field_opts(fields[index]) & O_VISIBLE) != 0; }
    short BackgroundPair(Field field) const
    {
        return static_cast<short>(PAIR_NUMBER(field_back(fields[field])));
    }
    chtype CellAt(int row, int column) const { return mvwinch(formWindow, row, column); }
    int CursorColumn() const { return getcurx(formWindow); }
    int CursorRow() const { return getcury(formWindow); }
    short MessagePair() const
    {
        return static_cast<short>(PAIR_NUMBER(mvwinch(messageWindow, 0, 0) & A_COLOR));
    }
    int Width() const { return _width; }
    int Height() const { return _height; }
    // Whether the form was left with a valid entry (not with ESC).
    bool Accepted() const { return accepted; }
    void DosPartitionUnavailable() { dosPartitionUnavailable = true; }
    bool IsSaveable() const { return !IsDosPartitionUnavailable(); }
    WINDOW* BottomWindow() const { return _bottomWindow; }
    static int MessageRowsFor(int contentRows) { return MessageRows(contentRows); }
    // The frame laid out again after the terminal changed size.
    void Resized() { ResizeFrame(); }
    WINDOW* MessageWindow() const { return messageWindow; }
    WINDOW* ContentWindow() const { return _contentWindow; }

protected:
    int ReadKey() override
    {
        while (!script.empty())
        {
            Step step = std::move(script.front());
            script.pop_front();
            if (step.check)
                step.check();
            else
                return step.key;
        }
        throw ScriptEnd();
    }

private:
    struct Step
    {
        int key;
        std::function<void()> check;
    };
    std::deque<Step> script;
    bool accepted = false;
};

const int Enter = 10;
const int Escape = 27;
const int Tab = 9;
const int Space = ' ';

class NetworkForm : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(screen.IsOpen());
        step = std::make_unique<ScriptedStep>(reader);
    }
    void TearDown() override { step.reset(); }

    Sandbox::TempDir dir{"/tmp/NetworkStepTest-"};
    FileScreen screen{dir.Path()};
    EepromReader reader{"/nonexistent/", "/nonexistent/", "/nonexistent/EepromReader"};
    std::unique_ptr<ScriptedStep> step;
};

// Field by field, as the step window shows it.
std::string Line(const std::string& left, int column, const std::string& right)
{
    std::string line = left;
    line.resize(static_cast<size_t>(column), ' ');
    return line + right;
}

TEST_F(NetworkForm, TheLabelsAndValuesSitInTheirColumns)
{
    step->Linux();
    step->Read("Vidorama-DEMO-0001", "static", "192.168.1.1", "255.255.255.0", "192.168.1.254",
               "192.168.1.254", "", "example.com");
    EXPECT_FALSE(step->RunForm());
    EXPECT_EQ(step->GetBottomText(), "<ENTER> to apply configuration");
    EXPECT_EQ(step->Row(0), "");
    EXPECT_EQ(step->Row(1), "");
    EXPECT_EQ(step->Row(2), " Hostname:   Vidorama-DEMO-0001");
    EXPECT_EQ(step->Row(3), "");
    EXPECT_EQ(step->Row(4), Line(" PC Lan 1", 40, "DNS"));
    EXPECT_EQ(step->Row(5), Line(Line(" Mode:", 13, "static"), 40, "Primary:   192.168.1.254"));
    EXPECT_EQ(step->Row(6),
              Line(Line(" IP Address:", 13, "192.168.1.1"), 40, "Secondary: 0.0.0.0"));
    EXPECT_EQ(step->Row(7),
              Line(Line(" Submask:", 13, "255.255.255.0"), 40, "Domain:    example.com"));
    EXPECT_EQ(step->Row(8), Line(" Gateway:", 13, "192.168.1.254"));
    EXPECT_EQ(step->Messages(), std::vector<std::string>{});
    EXPECT_EQ(getmaxy(step->MessageWindow()), 10);
    EXPECT_EQ(getmaxx(step->MessageWindow()), step->Width() - 12);
    EXPECT_EQ(getpary(step->MessageWindow()), 10);
    EXPECT_EQ(getparx(step->MessageWindow()), 6);
}

TEST_F(NetworkForm, TheHostNameIsCurrentFirstInBlackOnWhite)
{
    step->Linux();
    step->ReadStatic();
    EXPECT_FALSE(step->RunForm());
    EXPECT_TRUE(step->IsCurrent(ScriptedStep::Hostname));
    EXPECT_EQ(step->BackgroundPair(ScriptedStep::Hostname), 1);
    EXPECT_EQ(step->BackgroundPair(ScriptedStep::Mode), 0);
    // No marker while the mode is not current.
    EXPECT_EQ(step->CellAt(5, 21) & A_CHARTEXT, static_cast<chtype>(' '));
}

TEST_F(NetworkForm, TheModeGetsTheDownArrowMarkerAndGivesItBack)
{
    step->Linux();
    step->ReadStatic();
    step->Keys({KEY_DOWN});
    step->Then(
        [this]
        {
            EXPECT_TRUE(step->IsCurrent(ScriptedStep::Mode));
            EXPECT_EQ(step->BackgroundPair(ScriptedStep::Hostname), 2);
            EXPECT_EQ(step->BackgroundPair(ScriptedStep::Mode), 1);
            const chtype marker = step->CellAt(5, 21);
            EXPECT_EQ(marker & A_CHARTEXT, ACS_DARROW & A_CHARTEXT);
            EXPECT_NE(marker & A_ALTCHARSET, 0u);
        });
    step->Keys({Tab});
    EXPECT_FALSE(step->RunForm());
    EXPECT_TRUE(step->IsCurrent(ScriptedStep::IpAddress));
    EXPECT_EQ(step->BackgroundPair(ScriptedStep::Mode), 2);
    EXPECT_EQ(step->BackgroundPair(ScriptedStep::IpAddress), 1);
    EXPECT_EQ(step->CellAt(5, 21) & (A_CHARTEXT | A_ALTCHARSET), static_cast<chtype>(' '));
}

TEST_F(NetworkForm, UpDownTabAndBackTabWalkTheInputsInOrderSkippingTheLabels)
{
    step->Linux();
    step->ReadStatic();
    std::vector<int> seen;
    auto record = [this, &seen]
    {
        for (int field = ScriptedStep::Hostname; field <= ScriptedStep::Domain; ++field)
            if (step->IsCurrent(static_cast<ScriptedStep::Field>(field)))
                seen.push_back(field);
    };
    for (int i = 0; i < 8; ++i)
    {
        step->Keys({i % 2 == 0 ? KEY_DOWN : Tab});
        step->Then(record);
    }
    step->Keys({KEY_UP});
    step->Then(record);
    step->Keys({KEY_BTAB});
    step->Then(record);
    EXPECT_FALSE(step->RunForm());
    EXPECT_EQ(seen, (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 0, 7, 6}));
}

TEST_F(NetworkForm, AFieldIsEnteredWithTheCursorAtTheEndOfItsText)
{
    step->Linux();
    step->ReadStatic();
    step->Keys({KEY_DOWN, KEY_DOWN});
    EXPECT_FALSE(step->RunForm());
    EXPECT_TRUE(step->IsCurrent(ScriptedStep::IpAddress));
    EXPECT_EQ(step->CursorRow(), 6);
    EXPECT_EQ(step->CursorColumn(), 13 + static_cast<int>(std::strlen("192.168.1.1")));
}

TEST_F(NetworkForm, BackspaceAtTheStartOfAFieldStaysInIt)
{
    step->Linux();
    step->ReadStatic();
    step->Keys({KEY_DOWN, KEY_DOWN});
    step->Erase(20);
    step->Keys({127, 8});
    EXPECT_FALSE(step->RunForm());
    EXPECT_TRUE(step->IsCurrent(ScriptedStep::IpAddress));
    EXPECT_EQ(step->Row(6).substr(0, 40), Line(" IP Address:", 40, ""));
    EXPECT_EQ(step->Row(5).substr(13, 6), "static");
}

TEST_F(NetworkForm, ArrowsMoveInTheTextAndDeleteLineTakesTheCharacterUnderTheCursor)
{
    step->Linux();
    step->ReadStatic();
    step->Keys({KEY_DOWN, KEY_DOWN, KEY_LEFT, KEY_LEFT, KEY_DL, KEY_RIGHT});
    step->Type("7");
    EXPECT_FALSE(step->RunForm());
    EXPECT_EQ(step->Row(6).substr(13, 15), "192.168.117    ");
}

TEST_F(NetworkForm, TheModeIsNotTypedIntoAndAnAddressTakesNoLetters)
{
    step->Linux();
    step->ReadStatic();
    step->Keys({KEY_DOWN});
    step->Type("x");
    step->Keys({KEY_BACKSPACE, KEY_DOWN});
    step->Type("a");
    EXPECT_FALSE(step->RunForm());
    EXPECT_EQ(step->Buffer(ScriptedStep::Mode), "static  ");
    EXPECT_EQ(step->Buffer(ScriptedStep::IpAddress), "192.168.1.1    ");
}

TEST_F(NetworkForm, SpaceOnTheModeSwitchesToDhcpAndHidesTheAddressFields)
{
    step->Linux();
    step->ReadStatic();
    step->Keys({KEY_DOWN, Space});
    step->Then(
        [this]
        {
            EXPECT_EQ(step->Buffer(ScriptedStep::Mode), "dhcp    ");
            for (int index : {2, 3, 4, 15, 16, 17})
                EXPECT_FALSE(step->IsVisible(index)) << index;
            EXPECT_EQ(step->Row(5).substr(0, 21), Line(" Mode:", 13, "dhcp    "));
            EXPECT_EQ(step->Row(6), Line("", 40, "Secondary: 0.0.0.0"));
            EXPECT_EQ(step->Row(7), Line("", 40, "Domain:    example.com"));
            EXPECT_EQ(step->Row(8), "");
        });
    step->Keys({Space});
    EXPECT_FALSE(step->RunForm());
    EXPECT_EQ(step->Buffer(ScriptedStep::Mode), "static  ");
    for (int index : {2, 3, 4, 15, 16, 17})
        EXPECT_TRUE(step->IsVisible(index)) << index;
    EXPECT_EQ(step->Row(6),
              Line(Line(" IP Address:", 13, "192.168.1.1"), 40, "Secondary: 0.0.0.0"));
    EXPECT_EQ(step->Row(8), Line(" Gateway:", 13, "192.168.1.254"));
}

TEST_F(NetworkForm, HiddenFieldsAreNotVisited)
{
    step->Linux();
    step->ReadStatic();
    step->Keys({KEY_DOWN, Space, KEY_DOWN});
    EXPECT_FALSE(step->RunForm());
    EXPECT_TRUE(step->IsCurrent(ScriptedStep::PrimaryDns));
}

TEST_F(NetworkForm, SpaceElsewhereChangesNothing)
{
    step->Linux();
    step->ReadStatic();
    step->Keys({Space});
    EXPECT_FALSE(step->RunForm());
    EXPECT_EQ(step->Buffer(ScriptedStep::Hostname), "server-1" + std::string(16, ' '));
}

TEST_F(NetworkForm, DhcpWithoutAddressesIsAccepted)
{
    step->Linux();
    step->Read("server-1", "dhcp", "", "", "", "0.0.0.0", "0.0.0.0", "");
    step->Keys({Enter});
    ASSERT_TRUE(step->RunForm());
    EXPECT_EQ(step->GetInterface().method, "dhcp");
    EXPECT_EQ(step->GetInterface().address, "");
    EXPECT_EQ(step->GetInterface().hostname, "server-1");
    EXPECT_EQ(step->GetHostname(), "server-1");
    EXPECT_EQ(step->GetDnsInterface().primaryServer, "0.0.0.0");
    EXPECT_EQ(step->GetDnsInterface().domain, "");
}

TEST_F(NetworkForm, AValidEntryLeavesWithTrimmedValues)
{
    step->Linux();
    step->Read("  server-1", "static", "192.168.001.010", "255.255.255.000", "192.168.1.254",
               "010.0.0.1", "010.0.0.2", " example.com");
    step->Keys({KEY_DOWN, KEY_DOWN, KEY_DOWN, KEY_DOWN, KEY_DOWN, KEY_DOWN, KEY_DOWN, Enter});
    ASSERT_TRUE(step->RunForm());
    EXPECT_EQ(step->GetHostname(), "server-1");
    EXPECT_EQ(step->GetInterface().method, "static");
    EXPECT_EQ(step->GetInterface().address, "192.168.1.10");
    EXPECT_EQ(step->GetInterface().netmask, "255.255.255.0");
    EXPECT_EQ(step->GetInterface().gateway, "192.168.1.254");
    EXPECT_EQ(step->GetInterface().hostname, "server-1");
    EXPECT_EQ(step->GetDnsInterface().primaryServer, "10.0.0.1");
    EXPECT_EQ(step->GetDnsInterface().secondaryServer, "10.0.0.2");
    EXPECT_EQ(step->GetDnsInterface().domain, "example.com");
}

TEST_F(NetworkForm, AnInvalidHostNameGivesItsFiveLines)
{
    step->Linux();
    step->ReadStatic();
    step->Keys({KEY_DOWN, KEY_UP});
    step->Erase(24);
    step->Type("1abc");
    step->Keys({Enter});
    step->Then(
        [this]
        {
            EXPECT_EQ(step->Messages(),
                      (std::vector<std::string>{"Invalid hostname, here are the main constraints:",
                                                "- Characters available: A-Z, a-z, 0-9, -",
                                                "- Hostnames cannot start by a number or a '-'",
                                                "- Hostnames cannot finish by a '-'",
                                                "- Hostnames can be segmented with '.'"}));
            EXPECT_EQ(step->MessagePair(), 6);
        });
    // Corrected, the messages go and the form is left.
    step->Erase(4);
    step->Type("abc");
    step->Keys({Enter});
    ASSERT_TRUE(step->RunForm());
    EXPECT_EQ(step->GetHostname(), "abc");
}

TEST_F(NetworkForm, TheAddressMessagesComeOneAtATime)
{
    step->Linux();
    step->ReadStatic();
    step->Keys({KEY_DOWN, KEY_DOWN});
    step->Erase(15);
    step->Type("192.168.1.300");
    step->Keys({Enter});
    step->Then([this]
               { EXPECT_EQ(step->Messages(), std::vector<std::string>{"Invalid ip address"}); });
    // The field's own type keeps the operator in a field it refuses.
    step->Keys({KEY_DOWN});
    step->Then([this] { EXPECT_TRUE(step->IsCurrent(ScriptedStep::IpAddress)); });
    step->Erase(3);
    step->Type("30");
    step->Keys({KEY_DOWN});
    step->Erase(15);
    step->Type("255.0.255.0");
    step->Keys({Enter});
    step->Then([this]
               { EXPECT_EQ(step->Messages(), std::vector<std::string>{"Invalid net mask"}); });
    step->Erase(15);
    step->Type("255.255.0.0");
    step->Keys({KEY_DOWN});
    step->Erase(15);
    step->Type("192.168.1.256");
    step->Keys({Enter});
    step->Then(
        [this]
        { EXPECT_EQ(step->Messages(), std::vector<std::string>{"Invalid gateway address"}); });
    step->Erase(1);
    step->Keys({Enter});
    ASSERT_TRUE(step->RunForm());
    EXPECT_EQ(step->GetInterface().address, "192.168.1.30");
    EXPECT_EQ(step->GetInterface().netmask, "255.255.0.0");
    EXPECT_EQ(step->GetInterface().gateway, "192.168.1.25");
}

TEST_F(NetworkForm, AnEmptyStaticAddressIsRefused)
{
    step->Linux();
    step->Read("server-1", "static", "", "", "", "0.0.0.0", "0.0.0.0", "");
    step->Keys({Enter});
    EXPECT_FALSE(step->RunForm());
    EXPECT_EQ(step->Messages(), std::vector<std::string>{"Invalid ip address"});
}

TEST_F(NetworkForm, AHostNameErrorComesBeforeTheAddressOnes)
{
    step->Linux();
    step->Read("-bad", "static", "", "", "", "0.0.0.0", "0.0.0.0", "");
    step->Keys({Enter});
    EXPECT_FALSE(step->RunForm());
    EXPECT_EQ(step->Messages().size(), 5u);
}

TEST_F(NetworkForm, APrimaryServerWithoutDomainIsRefused)
{
    step->Linux();
    step->Read("server-1", "dhcp", "", "", "", "0.0.0.0", "0.0.0.0", "example.com");
    step->Keys({Enter});
    EXPECT_FALSE(step->RunForm());
    EXPECT_EQ(step->Messages(), std::vector<std::string>{
                                    "Primary IP and domain should both be filled or left empty"});
}

TEST_F(NetworkForm, TheDnsAndDomainMessagesStack)
{
    step->Linux();
    step->ReadStatic();
    // Blank fields pass the field type but not the checks.
    for (int i = 0; i < 5; ++i)
        step->Keys({KEY_DOWN});
    step->Erase(15);
    step->Keys({KEY_DOWN});
    step->Erase(15);
    step->Keys({KEY_DOWN});
    step->Erase(24);
    step->Type("1bad-");
    step->Keys({Enter});
    EXPECT_FALSE(step->RunForm());
    EXPECT_EQ(step->Messages(),
              (std::vector<std::string>{
                  "Invalid dns primary ip address", "Invalid dns secondary ip address",
                  "Invalid domain, here are the main constraints:",
                  "- Characters available: A-Z, a-z, 0-9, -, .",
                  "- Domain cannot start by a number or a '-'", "- Domain cannot finish by a '-'",
                  "- Domain can be segmented with '.'"}));
}

TEST_F(NetworkForm, ASecondaryServerNeedsAPrimaryOne)
{
    step->Linux();
    step->Read("server-1", "dhcp", "", "", "", "0.0.0.0", "8.8.8.8", "");
    step->Keys({Enter});
    EXPECT_FALSE(step->RunForm());
    EXPECT_EQ(step->Messages(),
              std::vector<std::string>{"Secondary IP can't be set if primary isn't"});
}

TEST_F(NetworkForm, AllDnsMessagesAtOnce)
{
    step->Linux();
    step->Read("server-1", "dhcp", "", "", "", "0.0.0.0", "8.8.8.8", "-x");
    step->Keys({Enter});
    EXPECT_FALSE(step->RunForm());
    const auto messages = step->Messages();
    ASSERT_EQ(messages.size(), 7u);
    EXPECT_EQ(messages[0], "Invalid domain, here are the main constraints:");
    EXPECT_EQ(messages[5], "Primary IP and domain should both be filled or left empty");
    EXPECT_EQ(messages[6], "Secondary IP can't be set if primary isn't");
}

TEST_F(NetworkForm, TheMessagesAreClearedAtEachEnter)
{
    step->Linux();
    step->Read("-bad", "dhcp", "", "", "", "0.0.0.0", "0.0.0.0", "");
    step->Keys({Enter});
    step->Then([this] { EXPECT_EQ(step->Messages().size(), 5u); });
    step->Keys({KEY_DOWN, KEY_UP});
    step->Erase(24);
    step->Type("good");
    step->Keys({KEY_DOWN, KEY_DOWN, KEY_DOWN});
    step->Erase(15);
    step->Type("8.8.8.8");
    step->Keys({Enter});
    EXPECT_FALSE(step->RunForm());
    EXPECT_EQ(step->Messages(),
              std::vector<std::string>{"Secondary IP can't be set if primary isn't"});
}

TEST_F(NetworkForm, ADosVersionHasNoHostNameNorModeAndStartsOnTheAddress)
{
    step->Dos();
    step->Read("", "static", "10.0.0.5", "255.0.0.0", "10.0.0.1", "", "", "");
    EXPECT_FALSE(step->RunForm());
    EXPECT_TRUE(step->IsCurrent(ScriptedStep::IpAddress));
    EXPECT_EQ(step->BackgroundPair(ScriptedStep::IpAddress), 1);
    EXPECT_FALSE(step->IsVisible(ScriptedStep::Hostname));
    EXPECT_FALSE(step->IsVisible(ScriptedStep::Mode));
    EXPECT_EQ(step->Row(2), "");
    EXPECT_EQ(step->Row(4), Line(" PC Lan 1", 40, "DNS"));
    EXPECT_EQ(step->Row(5), Line("", 40, "Primary:   0.0.0.0"));
    EXPECT_EQ(step->Row(6), Line(Line(" IP Address:", 13, "10.0.0.5"), 40, "Secondary: 0.0.0.0"));
    EXPECT_EQ(step->CursorRow(), 6);
}

TEST_F(NetworkForm, ADosEntryIsNotCheckedForAHostName)
{
    step->Dos();
    step->Read("", "static", "10.0.0.5", "255.0.0.0", "10.0.0.1", "", "", "");
    step->Keys({KEY_UP});
    step->Then([this] { EXPECT_TRUE(step->IsCurrent(ScriptedStep::Domain)); });
    step->Keys({Enter});
    ASSERT_TRUE(step->RunForm());
    EXPECT_EQ(step->GetHostname(), "");
    EXPECT_EQ(step->GetInterface().method, "static");
    EXPECT_EQ(step->GetInterface().address, "10.0.0.5");
}

TEST_F(NetworkForm, AnEmptyReadingShowsNoAddressFields)
{
    step->Linux();
    step->Read("", "", "", "", "", "", "", "");
    step->Keys({KEY_DOWN, Space});
    step->Then(
        [this]
        {
            EXPECT_EQ(step->Buffer(ScriptedStep::Mode), "static  ");
            EXPECT_TRUE(step->IsVisible(ScriptedStep::IpAddress));
        });
    EXPECT_FALSE(step->RunForm());
}

TEST_F(NetworkForm, LeavingTheFormFreesItAndHidesNothingElse)
{
    step->Linux();
    step->ReadStatic();
    step->Keys({Enter});
    ASSERT_TRUE(step->RunForm());
    EXPECT_EQ(step->MessageWindow(), nullptr);
    // The form is taken off the step window.
    EXPECT_EQ(step->Row(2), "");
    EXPECT_NE(step->ContentWindow(), nullptr);
}

// A host name of several labels, the longest label being 63 characters.
const std::string Label63 = std::string(62, 'l') + "9";
const std::string Longest = Label63 + "." + Label63 + "." + Label63 + "." + std::string(61, 'z');

TEST_F(NetworkForm, LongNamesReadAreKeptWholeThroughTheForm)
{
    ASSERT_EQ(Longest.size(), 253u);
    step->Linux();
    step->Read(Longest, "static", "192.168.1.1", "255.255.255.0", "192.168.1.254", "10.0.0.1",
               "0.0.0.0", "corp.broadcaster-intl.net");
    step->Then(
        [this]
        {
            // The field shows the beginning; the rest is scrolled to, not cut.
            EXPECT_EQ(step->Row(2), " Hostname:   " + Longest.substr(0, 24));
            EXPECT_EQ(step->Row(7).substr(40),
                      "Domain:    " + std::string("corp.broadcaster-intl.net").substr(0, 24));
        });
    step->Keys({Enter});
    ASSERT_TRUE(step->RunForm());
    EXPECT_TRUE(step->Accepted());
    EXPECT_EQ(step->GetHostname(), Longest);
    EXPECT_EQ(step->GetInterface().hostname, Longest);
    EXPECT_EQ(step->GetDnsInterface().domain, "corp.broadcaster-intl.net");
    // Nothing else changed on the way.
    EXPECT_EQ(step->GetInterface().address, "192.168.1.1");
    EXPECT_EQ(step->GetDnsInterface().primaryServer, "10.0.0.1");
}

TEST_F(NetworkForm, ALabelOfSixtyThreeCharactersIsKeptWhole)
{
    step->Linux();
    step->Read("studio." + Label63 + ".example", "dhcp", "", "", "", "0.0.0.0", "0.0.0.0", "");
    step->Keys({Enter});
    ASSERT_TRUE(step->RunForm());
    EXPECT_EQ(step->GetHostname(), "studio." + Label63 + ".example");
}

TEST_F(NetworkForm, TypingGoesOnPastTheVisibleWidthAndTheFieldScrolls)
{
    step->Linux();
    step->ReadStatic();
    // At the end of "server-1", then 30 more characters.
    step->Keys({KEY_DOWN, KEY_UP});
    step->Type(".studio-broadcast.example-long");
    step->Then(
        [this]
        {
            // The end of the text is what is seen, the cursor after it.
            const std::string row = step->Row(2);
            EXPECT_NE(row.find("-broadcast.example-long"), std::string::npos) << row;
            EXPECT_EQ(row.find("server-1"), std::string::npos) << row;
        });
    // The domain the same way.
    step->Keys({KEY_UP});
    step->Type(".branch-office.example.net");
    step->Keys({Enter});
    ASSERT_TRUE(step->RunForm());
    EXPECT_EQ(step->GetHostname(), "server-1.studio-broadcast.example-long");
    EXPECT_EQ(step->GetDnsInterface().domain, "example.com.branch-office.example.net");
}

TEST_F(NetworkForm, AHostNameStopsAtTwoHundredFiftyThreeCharacters)
{
    step->Linux();
    step->Read("", "dhcp", "", "", "", "0.0.0.0", "0.0.0.0", "");
    step->Type(Longest + "abcdef");
    step->Then([this] { EXPECT_EQ(step->Buffer(ScriptedStep::Hostname).size(), 253u); });
    step->Keys({Enter});
    ASSERT_TRUE(step->RunForm());
    EXPECT_EQ(step->GetHostname(), Longest);
}

TEST_F(NetworkForm, ADomainStopsAtTwoHundredFiftyThreeCharacters)
{
    const std::string domain = std::string(200, 'd') + "." + std::string(52, 'e');
    ASSERT_EQ(domain.size(), 253u);
    step->Linux();
    step->Read("server-1", "dhcp", "", "", "", "10.0.0.1", "0.0.0.0", "");
    step->Keys({KEY_UP});
    step->Type(domain + "xyz");
    step->Keys({Enter});
    ASSERT_TRUE(step->RunForm());
    EXPECT_EQ(step->GetDnsInterface().domain, domain);
}

TEST_F(NetworkForm, ADomainReadLongerThanTheFormTakesIsShownWholeAndRefused)
{
    const std::string domain = std::string(150, 'd') + "." + std::string(150, 'e');
    step->Linux();
    step->Read("server-1", "dhcp", "", "", "", "10.0.0.1", "0.0.0.0", domain);
    step->Keys({Enter});
    step->Then(
        [this, domain]
        {
            EXPECT_EQ(step->GetDnsInterface().domain, domain);
            const auto messages = step->Messages();
            ASSERT_FALSE(messages.empty());
            EXPECT_EQ(messages[0], "Invalid domain, here are the main constraints:");
        });
    // Shortened to the first 150 + 1 + 100, it is taken.
    step->Keys({KEY_UP});
    step->Erase(50);
    step->Keys({Enter});
    ASSERT_TRUE(step->RunForm());
    EXPECT_EQ(step->GetDnsInterface().domain, domain.substr(0, 251));
}

TEST(NetworkStepDomain, TheResolverRulesAndAtMostTwoHundredFiftyThreeCharacters)
{
    EXPECT_TRUE(NetworkStep::IsDomainAccepted("corp.broadcaster-intl.net"));
    EXPECT_TRUE(NetworkStep::IsDomainAccepted(std::string(253, 'a')));
    EXPECT_FALSE(NetworkStep::IsDomainAccepted(std::string(254, 'a')));
    EXPECT_FALSE(NetworkStep::IsDomainAccepted("1abc"));
    EXPECT_FALSE(NetworkStep::IsDomainAccepted("example-"));
    EXPECT_FALSE(NetworkStep::IsDomainAccepted(""));
}

TEST_F(NetworkForm, ADosVersionWithoutItsPartitionSaysSoAndEscapeLeaves)
{
    step->Dos();
    step->Read("", "static", "", "", "", "", "", "");
    step->DosPartitionUnavailable();
    const std::string line = "The DOS partition cannot be mounted: nothing can be saved.";
    step->Then(
        [this, line]
        {
            EXPECT_EQ(step->Messages(), std::vector<std::string>{line});
            EXPECT_EQ(step->GetBottomText(), "<ESC> return to the main menu");
            // The form is there as for any DOS version.
            EXPECT_EQ(step->Row(6).substr(0, 12), " IP Address:");
        });
    // A valid entry still cannot be saved: ENTER only says so again.
    step->Type("10.0.0.6");
    step->Keys({KEY_DOWN});
    step->Type("255.0.0.0");
    step->Keys({KEY_DOWN});
    step->Type("10.0.0.1");
    step->Keys({Enter});
    step->Then([this, line] { EXPECT_EQ(step->Messages(), std::vector<std::string>{line}); });
    step->Keys({Escape});
    ASSERT_TRUE(step->RunForm());
    EXPECT_FALSE(step->Accepted());
    EXPECT_FALSE(step->IsSaveable());
    EXPECT_EQ(step->MessageWindow(), nullptr);
}

TEST_F(NetworkForm, EscapeIsTypedTextWhenTheFormCanBeSaved)
{
    step->Dos();
    step->Read("", "static", "10.0.0.5", "255.0.0.0", "10.0.0.1", "", "", "");
    step->Keys({Escape});
    step->Then([this] { EXPECT_EQ(step->GetBottomText(), "<ENTER> to apply configuration"); });
    step->Keys({Enter});
    ASSERT_TRUE(step->RunForm());
    EXPECT_TRUE(step->Accepted());
    EXPECT_TRUE(step->IsSaveable());
    EXPECT_EQ(step->GetInterface().address, "10.0.0.5");
}

TEST(NetworkStepMessages, TheMessageWindowKeepsWithinTheContentWindow)
{
    // 25 lines: 20 content rows, ten for the messages; 24 lines: nine.
    EXPECT_EQ(ScriptedStep::MessageRowsFor(20), 10);
    EXPECT_EQ(ScriptedStep::MessageRowsFor(19), 9);
    EXPECT_EQ(ScriptedStep::MessageRowsFor(43), 10);
}

// A terminal of 80x24, as a serial console without a size gives.
class NetworkForm24 : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(screen.IsOpen());
        resizeterm(24, 80);
        step = std::make_unique<ScriptedStep>(reader);
    }
    void TearDown() override { step.reset(); }

    Sandbox::TempDir dir{"/tmp/NetworkStepTest-"};
    FileScreen screen{dir.Path()};
    EepromReader reader{"/nonexistent/", "/nonexistent/", "/nonexistent/EepromReader"};
    std::unique_ptr<ScriptedStep> step;
};

TEST_F(NetworkForm24, EveryMessageTheChecksStackIsShown)
{
    // The most the checks can stack: an invalid primary server excludes the
    // two rules of a primary server left at zero.
    step->Linux();
    step->Read("server-1", "dhcp", "", "", "", "0.0.0.0", "8.8.8", "-x");
    step->Keys({Enter});
    EXPECT_FALSE(step->RunForm());
    ASSERT_NE(step->MessageWindow(), nullptr);
    EXPECT_EQ(getmaxy(step->MessageWindow()), 9);
    EXPECT_EQ(getmaxy(step->ContentWindow()), 19);
    const auto messages = step->Messages();
    ASSERT_EQ(messages.size(), 8u);
    EXPECT_EQ(messages[0], "Invalid dns secondary ip address");
    EXPECT_EQ(messages[1], "Invalid domain, here are the main constraints:");
    EXPECT_EQ(messages[5], "- Domain can be segmented with '.'");
    EXPECT_EQ(messages[6], "Primary IP and domain should both be filled or left empty");
    EXPECT_EQ(messages[7], "Secondary IP can't be set if primary isn't");
}

TEST_F(NetworkForm, AtANewTerminalSizeTheFrameFollowsAndTheFormStays)
{
    step->Linux();
    step->Read(Longest, "static", "192.168.1.1", "255.255.255.0", "192.168.1.254", "10.0.0.1",
               "0.0.0.0", "corp.broadcaster-intl.net");
    step->Keys({KEY_DOWN});
    step->Then(
        [this]
        {
            resizeterm(24, 80);
            step->Resized();
            EXPECT_EQ(step->Height(), 22);
            EXPECT_EQ(step->Width(), 76);
            EXPECT_EQ(getmaxy(step->ContentWindow()), 19);
            EXPECT_EQ(getmaxy(step->MessageWindow()), 9);
            EXPECT_EQ(getbegy(step->BottomWindow()), 21);
            // The help line is where the frame's last row now is.
            EXPECT_EQ(Sandbox::FileScreen::Row(step->BottomWindow(), 1),
                      "<ENTER> to apply configuration");
            // The form is drawn as before.
            EXPECT_EQ(step->Row(2), " Hostname:   " + Longest.substr(0, 24));
            EXPECT_EQ(step->Row(8), Line(" Gateway:", 13, "192.168.1.254"));

            resizeterm(30, 100);
            step->Resized();
            EXPECT_EQ(step->Height(), 28);
            EXPECT_EQ(step->Width(), 96);
            EXPECT_EQ(getmaxx(step->ContentWindow()), 96);
            EXPECT_EQ(getmaxy(step->MessageWindow()), 10);
            EXPECT_EQ(getbegy(step->BottomWindow()), 27);
            EXPECT_EQ(Sandbox::FileScreen::Row(step->BottomWindow(), 1),
                      "<ENTER> to apply configuration");
            // The mode is current: its marker is drawn after it (read as ".").
            EXPECT_EQ(step->Row(5),
                      Line(Line(" Mode:", 13, "static  ."), 40, "Primary:   10.0.0.1"));
        });
    // The form goes on with what it had.
    step->Keys({Enter});
    ASSERT_TRUE(step->RunForm());
    EXPECT_EQ(step->GetHostname(), Longest);
    EXPECT_EQ(step->GetDnsInterface().domain, "corp.broadcaster-intl.net");
}

} // namespace
