#pragma once

#include <chrono>
#include <csignal>
#include <curses.h>
#include <future>
#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// Base of every screen: a full-screen frame made of a title bar, a content
// window and a two-line bottom help bar, plus a small centred pop-up used as
// progress indicator (animated dots) or, with size 0, as a message box.
class WizardStep
{
public:
    WizardStep();
    WizardStep(const char* title, const char* bottomText);
    virtual ~WizardStep();

    WizardStep(const WizardStep&) = delete;
    WizardStep& operator=(const WizardStep&) = delete;

    // True: the calling workflow may go on; false: cancelled or failed.
    virtual bool Run() = 0;
    virtual std::string GetTitle() const;
    virtual std::string GetBottomText() const;
    virtual void SetTitle(const char* title);
    virtual void SetBottomText(const char* text);
    virtual void CreateWindow();
    virtual void DestroyWindow();
    // Called after the frame was laid out again at a new terminal size; the
    // content window kept what was drawn in it (cut where it shrank). A step
    // whose content depends on the size draws it again here.
    virtual void RedrawContent();

    void PrintInMiddle(WINDOW* win, int y, int x, int width, const char* text, attr_t attributes);
    void ShowProgressPopup(const char* text, int size);
    void UpdateProgressPopup();
    void HideProgressPopup();

    // Set to 1 by the SIGWINCH handler, which does nothing else (a signal
    // handler may not call curses); the next key read or progress tick takes
    // it and redraws the current screen at the terminal's new size.
    static volatile std::sig_atomic_t terminalResized;

protected:
    // wgetch on the window; a resize signalled meanwhile is applied before
    // the key is returned, so the key acts on a screen drawn at the right size.
    int ReadKeyFrom(WINDOW* window);
    // When a resize is pending: curses takes the terminal's new size, the
    // frame is laid out again (ResizeFrame) and the step redraws its content.
    // True when something was done.
    bool ApplyPendingResize();
    // The frame and the pop-up laid out again for the current LINES x COLS,
    // keeping the content window (and whatever refers to it) in place.
    void ResizeFrame();

    // Waits for a background task with the progress pop-up shown: one dot per
    // second until the task is done, then the pop-up is hidden. Input is not
    // read meanwhile. The pop-up must already be shown with a size above 0.
    // A terminal resize is applied at the next tick when the task never draws
    // (resizeWhileWaiting); otherwise once it has ended, since laying out the
    // content window again under a worker that writes into it is not safe.
    template <typename T> T WaitForTask(std::future<T>& task, bool resizeWhileWaiting = false)
    {
        while (task.wait_for(std::chrono::seconds(1)) != std::future_status::ready)
        {
            if (resizeWhileWaiting)
                ApplyPendingResize();
            UpdateProgressPopup();
        }
        ApplyPendingResize();
        HideProgressPopup();
        return task.get();
    }

    WINDOW* _mainWindow = nullptr;
    WINDOW* _contentWindow = nullptr;
    WINDOW* _titleWindow = nullptr;
    WINDOW* _bottomWindow = nullptr;
    WINDOW* _popupWindow = nullptr;
    std::string _title;
    std::string _bottomText;
    std::string _popupText;
    // Taken when the step is built, and again by every CreateWindow and at
    // every resize applied while the frame is up.
    int _width = 0;
    int _height = 0;
    int _popupSize = 0;
    int _popupPosition = 0;

private:
    void DrawTitle();
    void DrawBottomText();
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
