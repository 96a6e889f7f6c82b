// Reading answers from the person or program that runs the command.
#pragma once

#include <optional>
#include <string>

class Terminal {
public:
    virtual ~Terminal() = default;
    // True when a person sits at standard input.
    virtual bool IsInteractive() = 0;
    // One line without its line feed; nothing at the end of input. Prompts are shown only to a person.
    virtual std::optional<std::string> ReadLine(const std::string& prompt) = 0;
    // The same without echo.
    virtual std::optional<std::string> ReadHidden(const std::string& prompt) = 0;
};

// Reads the descriptor given (standard input) and prompts on standard error. A signal that ends or stops the
// process while the echo is off (Ctrl+C, Ctrl+Z) does so after the echo is back; a process that is continued
// prompts again.
class RealTerminal : public Terminal {
public:
    explicit RealTerminal(int descriptor = 0) : m_descriptor(descriptor) {}

    bool IsInteractive() override;
    std::optional<std::string> ReadLine(const std::string& prompt) override;
    std::optional<std::string> ReadHidden(const std::string& prompt) override;

private:
    int m_descriptor;
};
