#pragma once

// A curses screen of a given size on a file instead of a terminal, ended and
// freed with the object: a step draws on it as on the console, its windows are
// read back with curses itself, and the file shows what reached the terminal.

#include <curses.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace Sandbox
{

class FileScreen
{
public:
    FileScreen(const std::string& directory, int lines = 25, int columns = 80)
        : path(directory + "/terminal")
    {
        output = std::fopen(path.c_str(), "w");
        input = std::fopen("/dev/null", "r");
        if (output != nullptr && input != nullptr)
            screen = newterm("xterm", output, input);
        if (screen != nullptr)
        {
            resizeterm(lines, columns);
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
        if (output != nullptr)
            std::fclose(output);
        if (input != nullptr)
            std::fclose(input);
    }
    FileScreen(const FileScreen&) = delete;
    FileScreen& operator=(const FileScreen&) = delete;

    bool IsOpen() const { return screen != nullptr; }

    // Everything sent to the terminal so far.
    std::string Sent() const
    {
        std::fflush(output);
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    // A row of a window, without trailing blanks.
    static std::string Row(WINDOW* window, int row)
    {
        char text[512] = {};
        mvwinnstr(window, row, 0, text, getmaxx(window) < 511 ? getmaxx(window) : 511);
        std::string line = text;
        const size_t end = line.find_last_not_of(' ');
        return end == std::string::npos ? "" : line.substr(0, end + 1);
    }

private:
    std::string path;
    FILE* output = nullptr;
    FILE* input = nullptr;
    SCREEN* screen = nullptr;
};

} // namespace Sandbox
