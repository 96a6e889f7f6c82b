// The text of one REST resource, opened for loading its members by name.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "rest-records.h"

// A resource that cannot be loaded: no JSON, a member that is missing, a member of another type. The text is
// the archive's.
class RestTextError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Ways to load a member, by how much the resource may lack it:
//   load            the member is there and has the right type, or RestTextError is thrown;
//   loadUnlessNull  as load, but a null leaves the value alone;
//   loadOptional    null, or not there at this level: the value is left alone; another type throws;
//   loadTolerant    as loadOptional, but null is recognised in the raw text, anywhere in it, in the two
//                   spellings that the controller's firmware generations write ("K":null and "K": null); in
//                   any other spelling it is a wrong type. For the members of Redfish drives that are known
//                   to come so.
//
// Whole numbers accept a real and cut it; beyond their range they take its nearest end. Used by one thread.
class RestText {
public:
    // Throws RestTextError when the text is no JSON object or array.
    explicit RestText(const std::string& text);
    ~RestText();
    RestText(const RestText&) = delete;
    RestText& operator=(const RestText&) = delete;

    // Is the quoted name with a colon behind it somewhere in the text?
    bool hasShape(const char* name) const;

    void load(const char* name, std::string& value);
    void load(const char* name, std::int64_t& value);
    void load(const char* name, std::int32_t& value);
    void load(const char* name, bool& value);
    void load(const char* name, Odataid& value);
    void load(const char* name, std::vector<std::string>& values);
    void load(const char* name, std::vector<Odataid>& values);

    template <class T>
    void loadUnlessNull(const char* name, T& value) {
        loadExcept({Presence::kNull}, name, value);
    }
    template <class T>
    void loadOptional(const char* name, T& value) {
        if (isNamed(name)) {
            loadExcept({Presence::kNull, Presence::kAbsent}, name, value);
        }
    }
    template <class T>
    void loadTolerant(const char* name, T& value) {
        if (isNamed(name) && !isNullInText(name)) {
            loadExcept({Presence::kAbsent}, name, value);
        }
    }

    // Runs `body` inside the object of that name: what it loads are that object's members.
    void inside(const char* name, const std::function<void()>& body);
    // The same by the two other ways of loading; `body` does not run when there is nothing to load.
    void insideUnlessNull(const char* name, const std::function<void()>& body);
    void insideOptional(const char* name, const std::function<void()>& body);
    // Runs `body` inside each object of the array of that name, for as long as it returns true. The length is
    // the array's.
    void insideEach(const char* name, const std::function<bool()>& body);
    void insideEachOptional(const char* name, const std::function<bool()>& body);

private:
    class Archive;

    // What the object that is open holds under that name.
    enum class Presence { kAbsent, kNull, kValue };
    using Excuses = std::initializer_list<Presence>;
    Presence presence(const char* name);
    // Nearly every member is there, so it is loaded as if it were, and a failure looked into: finding out
    // first would cost an exception for each member that is there. So would loading for each one that is
    // null.
    template <class T>
    void loadExcept(Excuses excuses, const char* name, T& value) {
        if (isNullInText(name) && isExcused(excuses, name)) {
            return;
        }
        T found = value;
        try {
            load(name, found);
        } catch (const RestTextError&) {
            if (!isExcused(excuses, name)) {
                throw;
            }
            return;
        }
        value = std::move(found);
    }
    // False when nothing in the text can be a member of that name.
    bool isNamed(const char* name) const;
    void insideExcept(Excuses excuses, const char* name, const std::function<void()>& body);
    bool isExcused(Excuses excuses, const char* name);
    bool isNullInText(const char* name) const;
    bool contains(const std::string& part) const { return m_text.find(part) != std::string::npos; }

    std::string m_text;
    bool m_escapes;  // names may be written with escapes, too
    std::unique_ptr<Archive> m_archive;
};

// The members of the shared records that are there, of the object that is open.
// The "Health" and "State" of "Status"; what is missing or null keeps what `status` holds.
void LoadStatus(RestText& text, Status& status);
// The location object of that name.
void LoadLocation(RestText& text, const char* name, PLocation& location);
void LoadStorageController(RestText& text, StorageController& controller);
