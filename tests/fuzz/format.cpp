// The placeholders of a message, and the way of the result into the system log. The input's first line is the
// text, the others are its parameters.
#include "message-format.h"

#include <string>
#include <vector>

#include "fuzz.h"
#include "server-util.h"
#include "sys-log.h"

using tova_service::ExpandMessage;
using tova_service::SysLog;

namespace {

class Lines : public tova_service::SystemLogSink {
public:
    void Open(const char*, int, int) override {}
    void Write(int, const char* text) override { lines.emplace_back(text); }
    void Close() override {}

    std::vector<std::string> lines;
};

// The same by a road of its own: character by character, with the number read as a text.
std::string Expanded(const std::string& text, const std::vector<std::string>& parameters) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '%') {
            result += text[at];
            continue;
        }
        if (++at == text.size()) {
            break;
        }
        std::string digits;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9') {
            digits += text[at++];
        }
        if (digits.empty()) {
            result += text[at] == 'n' ? '\n' : text[at];
            continue;
        }
        --at;
        digits.erase(0, digits.find_first_not_of('0'));
        if (!digits.empty() && digits.size() < 9 && std::stoul(digits) <= parameters.size()) {
            result += parameters[std::stoul(digits) - 1];
        }
    }
    return result;
}

// Either the whole sentence in lines, or, when it cannot be converted, nothing.
void CheckSystemLog(const std::string& sentence, const char* codePage) {
    Lines sink;
    try {
        SysLog(codePage, codePage, sink).Write(tovaevent::kDriveFailed, sentence.c_str());
    } catch (const tovabase::TOVAExcpt&) {
        FUZZ_CHECK(*codePage != '\0' && sink.lines.empty());
    }
    for (const std::string& line : sink.lines) {
        FUZZ_CHECK(line.find('\n') == std::string::npos);
        FUZZ_CHECK(line.size() <= sentence.size());
    }
}

}  // namespace

void Fuzz(std::string_view input) {
    std::vector<std::string> parameters = LinesOf(input);
    if (parameters.empty()) {
        return;
    }
    const std::string text = parameters.front();
    parameters.erase(parameters.begin());
    std::string result = "before ";
    ExpandMessage(result, text, parameters);
    FUZZ_CHECK(result == "before " + Expanded(text, parameters));
    for (const char* codePage : {"", "eucJP"}) {
        CheckSystemLog(result, codePage);
    }
}
