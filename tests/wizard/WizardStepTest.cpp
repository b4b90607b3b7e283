// The step frame at a new terminal size, on a curses screen whose terminal is
// a file: the frame follows LINES x COLS, the content window keeps what was
// drawn in it, the pop-up stays centred, and the step is asked to redraw.
#include "WizardStep.h"

#include "FileScreen.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <string>

using Kel::Vidorama::InstallerWizard::WizardStep;

namespace
{

class FramedStep : public WizardStep
{
public:
    FramedStep() : WizardStep("Frame title", "<ENTER> to continue") {}
    ~FramedStep() override
    {
        if (_popupWindow != nullptr)
            HideProgressPopup();
        DestroyWindow();
    }
    bool Run() override { return true; }
    void RedrawContent() override { ++redraws; }

    void Resized() { ResizeFrame(); }
    bool ApplyPending() { return ApplyPendingResize(); }
    WINDOW* Content() const { return _contentWindow; }
    WINDOW* Title() const { return _titleWindow; }
    WINDOW* Bottom() const { return _bottomWindow; }
    WINDOW* Main() const { return _mainWindow; }
    WINDOW* Popup() const { return _popupWindow; }
    int Width() const { return _width; }
    int Height() const { return _height; }
    int redraws = 0;
};

class Frame : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(screen.IsOpen());
        WizardStep::terminalResized = 0;
    }
    void TearDown() override { WizardStep::terminalResized = 0; }

    Sandbox::TempDir dir{"/tmp/WizardStepTest-"};
    Sandbox::FileScreen screen{dir.Path()};
};

std::string Centred(const std::string& text, int width)
{
    return std::string(static_cast<size_t>((width - static_cast<int>(text.size())) / 2), ' ') +
           text;
}

TEST_F(Frame, TheFrameFollowsASmallerAndALargerTerminal)
{
    FramedStep step;
    step.CreateWindow();
    mvwprintw(step.Content(), 3, 5, "%s", "Drawn before the resize");
    WINDOW* content = step.Content();

    resizeterm(24, 80);
    step.Resized();
    EXPECT_EQ(step.Height(), 22);
    EXPECT_EQ(step.Width(), 76);
    EXPECT_EQ(getbegy(step.Main()), 1);
    EXPECT_EQ(getbegx(step.Main()), 2);
    EXPECT_EQ(getmaxy(step.Main()), 22);
    // The content window is the same window, one row shorter.
    EXPECT_EQ(step.Content(), content);
    EXPECT_EQ(getmaxy(step.Content()), 19);
    EXPECT_EQ(Sandbox::FileScreen::Row(step.Content(), 3), "     Drawn before the resize");
    EXPECT_EQ(getbegy(step.Bottom()), 21);
    EXPECT_EQ(Sandbox::FileScreen::Row(step.Bottom(), 1), "<ENTER> to continue");
    EXPECT_EQ(Sandbox::FileScreen::Row(step.Title(), 0), Centred("Frame title", 76));
    EXPECT_EQ(step.redraws, 1);

    resizeterm(48, 128);
    step.Resized();
    // Where the bottom bar was, the content window has empty rows.
    EXPECT_EQ(Sandbox::FileScreen::Row(step.Content(), 19), "");
    EXPECT_EQ(Sandbox::FileScreen::Row(step.Content(), 20), "");
    EXPECT_EQ(step.Height(), 46);
    EXPECT_EQ(step.Width(), 124);
    EXPECT_EQ(getmaxy(step.Content()), 43);
    EXPECT_EQ(getmaxx(step.Content()), 124);
    EXPECT_EQ(Sandbox::FileScreen::Row(step.Content(), 3), "     Drawn before the resize");
    EXPECT_EQ(getbegy(step.Bottom()), 1 + 44);
    EXPECT_EQ(getmaxx(step.Bottom()), 124);
    EXPECT_EQ(Sandbox::FileScreen::Row(step.Title(), 0), Centred("Frame title", 124));
    EXPECT_EQ(step.redraws, 2);
}

TEST_F(Frame, TheProgressPopupStaysCentred)
{
    FramedStep step;
    step.CreateWindow();
    step.ShowProgressPopup("Working", 5);
    ASSERT_NE(step.Popup(), nullptr);
    EXPECT_EQ(getbegy(step.Popup()), 23 / 2);

    resizeterm(48, 128);
    step.Resized();
    EXPECT_EQ(getbegy(step.Popup()), 46 / 2);
    EXPECT_EQ(getbegx(step.Popup()), (124 - 7 - 5) / 2);
    // The dots go on where they were.
    step.UpdateProgressPopup();
    EXPECT_EQ(Sandbox::FileScreen::Row(step.Popup(), 1).substr(0, 10), "x Working.");
}

TEST_F(Frame, AStepNotShownOnlyTakesTheNewSize)
{
    FramedStep step;
    resizeterm(24, 80);
    step.Resized();
    EXPECT_EQ(step.Height(), 22);
    EXPECT_EQ(step.Main(), nullptr);
    EXPECT_EQ(step.redraws, 0);
    // The frame, when made, has the new size.
    step.CreateWindow();
    EXPECT_EQ(getmaxy(step.Content()), 19);
}

TEST_F(Frame, NothingIsDoneWithoutASignalledResize)
{
    FramedStep step;
    step.CreateWindow();
    EXPECT_FALSE(step.ApplyPending());
    EXPECT_EQ(step.redraws, 0);
    WizardStep::terminalResized = 1;
    EXPECT_TRUE(step.ApplyPending());
    EXPECT_EQ(WizardStep::terminalResized, 0);
    EXPECT_EQ(step.redraws, 1);
    // The frame matches whatever size curses has now.
    EXPECT_EQ(step.Height(), LINES - 2);
    EXPECT_EQ(step.Width(), COLS - 4);
    EXPECT_FALSE(step.ApplyPending());
    EXPECT_EQ(step.redraws, 1);
}

} // namespace
