#pragma once

#include "WizardStep.h"

#include <fstream>
#include <string>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// Shows a plain text file in the frame and scrolls it line by line.
class TextStep : public WizardStep
{
public:
    TextStep(const char* title, const char* filePath);

    // Always true, once the user leaves with ESC.
    bool Run() override;

protected:
    // The next key from the content window.
    virtual int ReadKey();

private:
    void PrintLine(int row, const std::string& line);

    int _topLine = 0;
    std::string _filePath;
    std::ifstream _file;
    // Entry k is meant to be where line k starts; only ever appended to, so it
    // is exact only as long as the user has scrolled downwards.
    std::vector<std::streampos> _linePositions;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
