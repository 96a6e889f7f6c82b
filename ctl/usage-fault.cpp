#include "usage-fault.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t kLongestWord = 20;
constexpr const char* kWordCharacters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-";

bool IsWord(const std::string& text) {
    return !text.empty() && text.size() <= kLongestWord &&
           text.find_first_not_of(kWordCharacters) == std::string::npos;
}

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

// The command as far as it was understood: the program's name first.
std::vector<const CLI::App*> Chosen(const CLI::App& app) {
    std::vector<const CLI::App*> chosen{&app};
    for (auto below = app.get_subcommands(); !below.empty(); below = below.back()->get_subcommands()) {
        chosen.push_back(below.back());
    }
    return chosen;
}

std::vector<std::string> NamesOf(const std::vector<const CLI::App*>& commands) {
    std::vector<std::string> names;
    names.reserve(commands.size());
    for (const CLI::App* command : commands) {
        names.push_back(command->get_name());
    }
    return names;
}

std::string Joined(const std::vector<std::string>& names, const char* separator) {
    std::string joined;
    for (const std::string& name : names) {
        joined += (joined.empty() ? "" : separator) + name;
    }
    return joined;
}

// "--format: xml not in {table,json}" as a sentence about the command; empty for another text.
std::string FaultOfChoice(const std::string& command, const std::string& text) {
    constexpr std::string_view kNotIn = " not in {";
    const std::size_t colon = text.find(": ");
    const std::size_t choices = text.rfind(kNotIn);
    if (text.rfind("--", 0) != 0 || colon == std::string::npos || choices == std::string::npos ||
        choices < colon + 2 || text.back() != '}') {
        return {};
    }
    const std::string given = text.substr(colon + 2, choices - colon - 2);
    std::string known = text.substr(choices + kNotIn.size());
    known.pop_back();
    for (std::size_t comma = known.find(','); comma != std::string::npos;
         comma = known.find(',', comma + 2)) {
        known.replace(comma, 1, ", ");
    }
    return command + " has no " + text.substr(2, colon - 2) + " " +
           (IsWord(given) ? Quoted(given) : "of that name") + " (" + known + ")";
}

std::string FaultOfExtras(const std::string& command, const CLI::App& app) {
    for (std::string extra : app.remaining(true)) {
        extra.resize(std::min(extra.find('='), extra.size()));
        if (extra.rfind("--", 0) == 0 && IsWord(extra)) {
            return command + " knows no option " + Quoted(extra);
        }
    }
    return command + " does not know one of its arguments, or has one too many";
}

std::string FaultOf(const std::vector<const CLI::App*>& chosen, const CLI::ParseError& failure) {
    const CLI::App& last = *chosen.back();
    const std::vector<std::string> names = NamesOf(chosen);
    const std::string command =
        Quoted(chosen.size() > 1 ? Joined({names.begin() + 1, names.end()}, " ") : names.front());
    std::string text = failure.what();
    const std::string option = text.substr(0, text.find(':'));
    if (dynamic_cast<const CLI::RequiredError*>(&failure) != nullptr) {
        return command + " needs one of its commands (" +
               Joined(NamesOf(last.get_subcommands([](const CLI::App*) { return true; })), ", ") + ")";
    }
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&failure) != nullptr && option.rfind("--", 0) == 0) {
        return Quoted(option) + " needs one value";
    }
    if (dynamic_cast<const CLI::ExcludesError*>(&failure) != nullptr) {
        return text;  // the names of two options
    }
    if (dynamic_cast<const CLI::ExtrasError*>(&failure) != nullptr) {
        return FaultOfExtras(command, *chosen.front());
    }
    const std::string choice = FaultOfChoice(command, text);
    return choice.empty() ? command + " is incomplete or wrong" : choice;
}

}  // namespace

std::string FaultOfUsage(const CLI::App& app, const CLI::ParseError& failure) {
    const std::vector<const CLI::App*> chosen = Chosen(app);
    const bool isAccount = chosen.size() > 1 && chosen[1]->get_name() == "account";
    const bool isExtra = dynamic_cast<const CLI::ExtrasError*>(&failure) != nullptr;
    return (isAccount && isExtra
                ? std::string(
                      "Unknown command or option, or an argument too many (passwords are asked for, they "
                      "are no arguments)")
                : FaultOf(chosen, failure)) +
           "; see \"" + Joined(NamesOf(chosen), " ") + " --help\".";
}
