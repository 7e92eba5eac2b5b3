// Linked with the terminal code by a cross compiler, to prove that its Windows branch builds and
// links for Windows; run there, it reads one hidden line and says how many bytes came in.
#include "cli/TerminalInput.h"

#include <cstdio>

int main()
{
    using Velmarin::Cli::TerminalInput;
    if (!TerminalInput::isTerminal(TerminalInput::Stream::Input)) {
        std::puts("not a console");
        return 1;
    }
    char line[256];
    std::size_t length = 0;
    const TerminalInput::Result result =
        TerminalInput::readHiddenLine([] { std::fputs("Senha: ", stderr); }, line, sizeof line, length);
    std::printf("\nresult %d, %u bytes\n", static_cast<int>(result), static_cast<unsigned>(length));
    return 0;
}
