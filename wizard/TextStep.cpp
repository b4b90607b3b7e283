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
    // The key's text is shown exactly as written: never used as a format, so a
    // "%" is an ordinary character. A control character shows as curses
    // spells it ("^M"), a tab as blanks up to the next stop; the row is cut at
    // width - 1 columns, so nothing runs over into the next row.
    const int columns = _width - 1;
    std::string text = line;
    if (!text.empty() && text.back() == '\r')
        text.pop_back();
    wmove(_contentWindow, row, 0);
    int column = 0;
    for (const char c : text)
    {
        const unsigned char byte = static_cast<unsigned char>(c);
        const std::string shown =
            byte == '\t' ? std::string(static_cast<size_t>(8 - column % 8), ' ') : unctrl(byte);
        if (column + static_cast<int>(shown.size()) > columns)
            break;
        waddstr(_contentWindow, shown.c_str());
        column += static_cast<int>(shown.size());
    }
}

int TextStep::ReadKey()
{
    return ReadKeyFrom(_contentWindow);
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
        const int key = ReadKey();
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
