// A step built only for the tests: shows the frame and the progress pop-up and
// lets the test drive it key by key, so that the screen can be checked after
// every dot. Keys: space = one dot, h = hide, m = message box, w = wait on a
// 3-second background task, q = quit.
#include "Wizard.h"
#include "WizardStep.h"

#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

using namespace Kel::Vidorama::InstallerWizard;

namespace
{

class ProgressStep : public WizardStep
{
public:
    ProgressStep(std::string text, int size) : _text(std::move(text)), _size(size) {}

    bool Run() override
    {
        CreateWindow();
        SetBottomText("<SPACE> dot, <h> hide, <m> message, <w> wait, <q> quit");
        ShowProgressPopup(_text.c_str(), _size);
        std::ofstream report("popup.txt");
        report << (_popupWindow != nullptr ? "popup created" : "popup refused") << std::endl;
        for (;;)
        {
            const int key = wgetch(_contentWindow);
            if (key == ' ')
                UpdateProgressPopup();
            else if (key == 'h')
                HideProgressPopup();
            else if (key == 'm')
                ShowProgressPopup("Message box", 0);
            else if (key == 'w')
            {
                ShowProgressPopup("Working", 10);
                std::future<int> task =
                    std::async(std::launch::async,
                               []
                               {
                                   std::this_thread::sleep_for(std::chrono::milliseconds(3500));
                                   return 42;
                               });
                const int result = WaitForTask(task);
                mvwprintw(_contentWindow, 2, 0, "Task result %d", result);
                wrefresh(_contentWindow);
            }
            else if (key == 'q')
                break;
        }
        DestroyWindow();
        return true;
    }

private:
    std::string _text;
    int _size;
};

class ProgressApp : public Wizard
{
public:
    ProgressApp(const char* text, int size) : _step(text, size)
    {
        // Only stored: the frame does not exist yet.
        _step.SetTitle("Popup test");
        std::ofstream("title.txt")
            << (_step.GetTitle() == "Popup test" ? "stored" : "lost") << std::endl;
    }
    int Start() override { return _step.Run() ? 0 : 1; }

private:
    ProgressStep _step;
};

} // namespace

int main(int argc, char* argv[])
{
    const char* text = argc > 1 ? argv[1] : "Disk partitioning";
    const int size = argc > 2 ? std::atoi(argv[2]) : 5;
    ProgressApp app(text, size);
    return app.Start();
}
