#pragma once

#include <chrono>
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

    void PrintInMiddle(WINDOW* win, int y, int x, int width, const char* text, attr_t attributes);
    void ShowProgressPopup(const char* text, int size);
    void UpdateProgressPopup();
    void HideProgressPopup();

protected:
    // Waits for a background task with the progress pop-up shown: one dot per
    // second until the task is done, then the pop-up is hidden. Input is not
    // read meanwhile. The pop-up must already be shown with a size above 0.
    template <typename T> T WaitForTask(std::future<T>& task)
    {
        while (task.wait_for(std::chrono::seconds(1)) != std::future_status::ready)
            UpdateProgressPopup();
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
    // Taken once when the step is built: the frame does not follow resizes.
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
