#pragma once

#include <string>
#include <vector>

namespace Sandbox
{

// A program in a terminal of fixed size, inside a tmux server of its own:
// what the program draws is read back as text and keys are typed into it.
// The server (and with it the program, through SIGHUP) ends with the object.
class TmuxScreen
{
public:
    // Runs shellCommand (through sh) in a columns x rows pane without a
    // status line; the pane stays readable after the program has ended.
    // Throws std::runtime_error when tmux cannot provide that.
    TmuxScreen(int columns, int rows, const std::string& shellCommand);
    ~TmuxScreen();
    TmuxScreen(const TmuxScreen&) = delete;
    TmuxScreen& operator=(const TmuxScreen&) = delete;

    // Exactly Rows() lines, each ending in '\n', trailing blanks removed.
    std::string Capture() const;
    // The same rows with the colours and attributes as SGR escape sequences
    // (capture-pane -e); lines as tmux gives them.
    std::string CaptureStyled() const;
    // tmux key names ("Enter", "Escape", "Down", "C-c", "1", ...).
    void SendKeys(const std::vector<std::string>& keys) const;
    // Characters typed as they are.
    void SendText(const std::string& literal) const;

    // The pane's first process (the shell command after sh's exec), 0 if unknown.
    int PanePid() const;
    bool PaneDead() const;
    int Rows() const { return _rows; }
    const std::string& Socket() const { return _socket; }

private:
    int TmuxRun(const std::vector<std::string>& args, std::string* output) const;
    std::string Display(const std::string& format) const;
    void KillServer() noexcept;

    std::string _socket;
    std::string _socketPath;
    int _columns;
    int _rows;
};

} // namespace Sandbox
