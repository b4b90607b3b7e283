#include "TextStep.h"

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

namespace
{
const int Escape = 27;
}

TextStep::TextStep(const char* title, const char* filePath)
    : WizardStep(title, ""), _filePath(filePath)
{
}

void TextStep::PrintLine(int row, const std::string& line)
{
    const std::string shown = line.substr(0, static_cast<size_t>(_width - 1));
    // The line is its own format text, so a "%" in the file is interpreted.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    mvwprintw(_contentWindow, row, 0, shown.c_str());
#pragma GCC diagnostic pop
}

bool TextStep::Run()
{
    CreateWindow();
    scrollok(_contentWindow, TRUE);

    // Rows filled at first display; the content window's last row stays empty.
    const int visible = _height - 4;

    _file.open(_filePath.c_str(), std::ios::in);
    if (_file.good())
    {
        _file.seekg(0, std::ios::beg);
        _linePositions.push_back(_file.tellg());
        std::string line;
        for (int row = 0; row < visible && !_file.eof(); ++row)
        {
            if (!std::getline(_file, line))
                break;
            PrintLine(row, line);
            _linePositions.push_back(_file.tellg());
        }
    }

    if (_file.good())
        SetBottomText("<ESC> return to main menu, <UP> and <DOWN> to scroll text");
    else
        SetBottomText("<ESC> return to main menu");
    wrefresh(_contentWindow);
    refresh();

    for (;;)
    {
        const int key = wgetch(_contentWindow);
        if (key == KEY_DOWN)
        {
            std::string line;
            if (_file.good() && std::getline(_file, line))
            {
                _linePositions.push_back(_file.tellg());
                wscrl(_contentWindow, 1);
                PrintLine(visible, line);
                ++_topLine;
                wrefresh(_contentWindow);
            }
        }
        else if (key == KEY_UP)
        {
            if (_topLine > 0)
            {
                wscrl(_contentWindow, -1);
                --_topLine;
                const std::streampos first = _linePositions[_topLine];
                const std::streampos next = _linePositions[_topLine + visible];
                _file.clear();
                _file.seekg(first);
                std::string line;
                std::getline(_file, line);
                PrintLine(0, line);
                wrefresh(_contentWindow);
                // The next down arrow reads the line after the last one shown.
                _file.seekg(next);
            }
        }
        else if (key == Escape)
        {
            _file.close();
            DestroyWindow();
            return true;
        }
    }
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
