#include "cli/TerminalInput.h"

#ifdef _WIN32
#include <io.h>
#include <windows.h>
#else
#include <termios.h>
#include <unistd.h>
#endif

#include <cstdio>

namespace Velmarin::Cli {

namespace {

constexpr char CtrlC = 0x03;
constexpr char CtrlD = 0x04;
constexpr char CtrlU = 0x15;
constexpr char Backspace = 0x08;
constexpr char Delete = 0x7f;

// Removes the last UTF-8 character, continuation bytes included.
void dropLastCharacter(char* buffer, std::size_t& length)
{
    while (length > 0 && (static_cast<unsigned char>(buffer[length - 1]) & 0xC0) == 0x80) {
        buffer[--length] = 0;
    }
    if (length > 0) {
        buffer[--length] = 0;
    }
}

// Applies one typed byte; true when the line is complete.
bool accept(char typed, char* buffer, std::size_t capacity, std::size_t& length,
            TerminalInput::Result& result)
{
    if (typed == '\r' || typed == '\n') {
        result = TerminalInput::Result::Line;
        return true;
    }
    if (typed == CtrlC || (typed == CtrlD && length == 0)) {
        result = TerminalInput::Result::Cancelled;
        return true;
    }
    if (typed == Backspace || typed == Delete) {
        dropLastCharacter(buffer, length);
    } else if (typed == CtrlU) {
        while (length > 0) {
            buffer[--length] = 0;
        }
    } else if (length < capacity) {
        buffer[length++] = typed;
    }
    return false;
}

} // namespace

#ifdef _WIN32

bool TerminalInput::isTerminal(Stream stream)
{
    const int descriptor = stream == Stream::Input ? 0 : (stream == Stream::Output ? 1 : 2);
    return _isatty(descriptor) != 0;
}

TerminalInput::Result TerminalInput::readHiddenLine(const std::function<void()>& showPrompt, char* buffer,
                                                    std::size_t capacity, std::size_t& length)
{
    length = 0;
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD oldMode = 0;
    if (input == INVALID_HANDLE_VALUE || !GetConsoleMode(input, &oldMode)) {
        return Result::Failed;
    }
    // Characters one by one, without echo, and Ctrl+C as a character so the mode is always restored.
    const DWORD rawMode =
        oldMode & ~static_cast<DWORD>(ENABLE_ECHO_INPUT | ENABLE_LINE_INPUT | ENABLE_PROCESSED_INPUT);
    if (!SetConsoleMode(input, rawMode)) {
        return Result::Failed;
    }
    showPrompt();
    Result result = Result::Failed;
    wchar_t pending[2] = {0, 0};
    for (;;) {
        DWORD read = 0;
        if (!ReadConsoleW(input, &pending[0], 1, &read, nullptr) || read != 1) {
            result = Result::Failed;
            break;
        }
        int units = 1;
        // A character outside the basic plane arrives as two halves that are converted together.
        if (pending[0] >= 0xD800 && pending[0] <= 0xDBFF) {
            if (!ReadConsoleW(input, &pending[1], 1, &read, nullptr) || read != 1) {
                break;
            }
            units = 2;
        }
        char bytes[8] = {};
        const int count =
            WideCharToMultiByte(CP_UTF8, 0, pending, units, bytes, sizeof bytes, nullptr, nullptr);
        bool done = false;
        for (int i = 0; i < count && !done; ++i) {
            done = accept(bytes[i], buffer, capacity, length, result);
        }
        SecureZeroMemory(bytes, sizeof bytes);
        SecureZeroMemory(pending, sizeof pending);
        if (done) {
            break;
        }
    }
    SetConsoleMode(input, oldMode);
    return result;
}

#else

bool TerminalInput::isTerminal(Stream stream)
{
    const int descriptor =
        stream == Stream::Input ? STDIN_FILENO : (stream == Stream::Output ? STDOUT_FILENO : STDERR_FILENO);
    return isatty(descriptor) == 1;
}

TerminalInput::Result TerminalInput::readHiddenLine(const std::function<void()>& showPrompt, char* buffer,
                                                    std::size_t capacity, std::size_t& length)
{
    length = 0;
    termios oldMode{};
    if (tcgetattr(STDIN_FILENO, &oldMode) != 0) {
        return Result::Failed;
    }
    // Byte by byte, without echo, and Ctrl+C as a byte rather than a signal, so the echo always
    // comes back: a process killed here would leave the user's terminal silent.
    termios rawMode = oldMode;
    rawMode.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | ISIG);
    rawMode.c_cc[VMIN] = 1;
    rawMode.c_cc[VTIME] = 0;
    if (tcsetattr(STDIN_FILENO, TCSAFLUSH, &rawMode) != 0) {
        return Result::Failed;
    }
    showPrompt();
    Result result = Result::Failed;
    for (;;) {
        char typed = 0;
        if (read(STDIN_FILENO, &typed, 1) != 1) {
            result = Result::Failed;
            break;
        }
        const bool done = accept(typed, buffer, capacity, length, result);
        typed = 0;
        if (done) {
            break;
        }
    }
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &oldMode);
    return result;
}

#endif

} // namespace Velmarin::Cli
