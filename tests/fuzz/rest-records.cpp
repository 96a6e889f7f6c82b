// One resource's text, and every way of loading its members.
#include <functional>
#include <string>
#include <vector>

#include "fuzz.h"
#include "rest-text.h"

namespace {

// The names that the corpus and the dictionary use.
constexpr const char* kNames[] = {"Name", "Status", "Drives", "N"};

std::string Told(const std::string& value) {
    return value;
}
std::string Told(std::int64_t value) {
    return std::to_string(value);
}
std::string Told(const Odataid& value) {
    return value.id + " " + value.below("x").id;
}
template <class Item>
std::string Told(const std::vector<Item>& values) {
    std::string text;
    for (const Item& value : values) {
        text += Told(value) + ",";
    }
    return text;
}

// What a loading leads to: what it loads, or its failure.
std::string Outcome(const std::function<std::string()>& load) {
    try {
        return load() + "\n";
    } catch (const RestTextError& error) {
        return std::string(error.what()) + "\n";
    }
}

template <class Value>
std::string LoadByAllWays(RestText& text, const char* name) {
    std::string told;
    for (const auto way :
         {&RestText::loadUnlessNull<Value>, &RestText::loadOptional<Value>, &RestText::loadTolerant<Value>}) {
        told += Outcome([&] {
            Value value{};
            (text.*way)(name, value);
            return Told(value);
        });
    }
    return told + Outcome([&] {
               Value value{};
               text.load(name, value);
               return Told(value);
           });
}

std::string LoadNamed(RestText& text, const char* name) {
    std::string told = LoadByAllWays<std::string>(text, name) + LoadByAllWays<std::int64_t>(text, name) +
                       LoadByAllWays<std::int32_t>(text, name) + LoadByAllWays<bool>(text, name) +
                       LoadByAllWays<Odataid>(text, name) +
                       LoadByAllWays<std::vector<std::string>>(text, name) +
                       LoadByAllWays<std::vector<Odataid>>(text, name);
    told += Outcome([&] {
        std::string inner;
        text.insideEachOptional(name, [&] {
            StorageController controller;
            LoadStorageController(text, controller);
            inner +=
                controller.Name + controller.Model + controller.SerialNumber + controller.Location.text();
            return true;
        });
        return inner;
    });
    told += Outcome([&] {
        std::string inner;
        text.insideOptional(name, [&] { inner = LoadByAllWays<std::string>(text, "Name"); });
        return inner;
    });
    return told;
}

std::string LoadRecords(RestText& text) {
    return Outcome([&] {
               Status status;
               LoadStatus(text, status);
               return status.Health + "|" + status.State;
           }) +
           Outcome([&] {
               PLocation location;
               LoadLocation(text, "PhysicalLocation", location);
               return location.text();
           }) +
           Outcome([&] {
               StorageController controller;
               LoadStorageController(text, controller);
               return controller.Name + "|" + controller.Model + "|" + Trimmed(controller.SerialNumber) +
                      "|" + controller.Location.text();
           });
}

std::string LoadAll(const std::string& content) {
    return Outcome([&] {
        RestText text(content);
        std::string told = LoadRecords(text);
        for (const char* name : kNames) {
            told += LoadNamed(text, name);
        }
        // Nothing that was loaded in between has moved anything.
        FUZZ_CHECK(told.starts_with(LoadRecords(text)));
        return told;
    });
}

}  // namespace

void Fuzz(std::string_view input) {
    const std::string content(input);
    const std::string told = LoadAll(content);
    // A member that nobody asks for changes nothing.
    const std::size_t next = content.find_first_not_of(" \t\r\n", 1);
    if (content.starts_with('{') && next != std::string::npos && content[next] == '"') {
        FUZZ_CHECK(LoadAll("{\"Zz\":[{}]," + content.substr(1)) == told);
    }
}
