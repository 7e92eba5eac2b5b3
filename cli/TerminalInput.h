#pragma once

#include <cstddef>
#include <functional>

namespace Velmarin::Cli {

// The terminal, reached without Qt so the same code builds for Windows and for POSIX systems.
class TerminalInput
{
public:
    enum class Stream
    {
        Input,
        Output,
        Errors
    };

    enum class Result
    {
        Line,
        Cancelled,
        Failed
    };

    static bool isTerminal(Stream stream);

    // Reads one line typed on the terminal of standard input without showing it. The bytes are
    // UTF-8 and never include the line end; Ctrl+C or Ctrl+D on an empty line cancels. Whatever is
    // typed beyond capacity is dropped. The terminal is put back as it was before returning.
    // showPrompt runs once echo is off, so nothing typed after the prompt appears can be shown.
    static Result readHiddenLine(const std::function<void()>& showPrompt, char* buffer, std::size_t capacity,
                                 std::size_t& length);
};

} // namespace Velmarin::Cli
