#include "rest-text.h"

// Nothing limits how deep a hostile text nests, so it is parsed without recursion. NaN and the infinities
// stay the archive's habit; they never become a whole number. The archive's own full precision is left out:
// with it RapidJSON 1.1 makes a random number of a zero with an exponent ("0e39"), and whole numbers do not
// need it.
#define RAPIDJSON_PARSE_DEFAULT_FLAGS (kParseNanAndInfFlag | kParseIterativeFlag)

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <sstream>

#include "checked-rapidjson.h"
#include "whole-number.h"

namespace {

// Runs what uses the archive and turns the archive's exceptions into ours.
template <class Body>
void Guarded(Body body) {
    try {
        body();
    } catch (const cereal::Exception& error) {
        throw RestTextError(error.what());
    }
}

// Leaves the node again also when an exception passes, so that the archive stays usable.
class Node {
public:
    Node(cereal::JSONInputArchive& archive, const char* name) : m_archive(archive) {
        if (name != nullptr) {
            archive.setNextName(name);
        }
        archive.startNode();
    }
    ~Node() { m_archive.finishNode(); }
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

private:
    cereal::JSONInputArchive& m_archive;
};

}  // namespace

class RestText::Archive {
public:
    explicit Archive(const std::string& text) : stream(text), json(stream) {}

    // The length of the array that was entered last, as it stands in the text. Throws when it is an object.
    std::size_t size() {
        cereal::size_type size = 0;
        json.loadSize(size);
        return static_cast<std::size_t>(size);
    }

    std::istringstream stream;  // before the archive, which reads it
    cereal::JSONInputArchive json;
};

RestText::RestText(const std::string& text) : m_text(text), m_escapes(contains("\\")) {
    Guarded([&] { m_archive = std::make_unique<Archive>(text); });
}

RestText::~RestText() = default;

bool RestText::hasShape(const char* name) const {
    return contains(std::string("\"") + name + "\":");
}

bool RestText::isNullInText(const char* name) const {
    const std::string member = std::string("\"") + name + "\":";
    return contains(member + "null") || contains(member + " null");
}

void RestText::load(const char* name, std::string& value) {
    Guarded([&] { m_archive->json(cereal::make_nvp(name, value)); });
}

void RestText::load(const char* name, std::int64_t& value) {
    Guarded([&] {
        std::int64_t whole = 0;
        try {
            m_archive->json(cereal::make_nvp(name, whole));
        } catch (const cereal::RapidJSONException&) {
            double real = 0;
            m_archive->json(cereal::make_nvp(name, real));
            if (!std::isfinite(real)) {
                throw cereal::RapidJSONException("not a finite number");
            }
            whole = WholeNumber(real);
        }
        value = whole;
    });
}

void RestText::load(const char* name, std::int32_t& value) {
    std::int64_t wide = 0;
    load(name, wide);
    value = static_cast<std::int32_t>(std::clamp<std::int64_t>(wide, std::numeric_limits<std::int32_t>::min(),
                                                               std::numeric_limits<std::int32_t>::max()));
}

void RestText::load(const char* name, bool& value) {
    Guarded([&] { m_archive->json(cereal::make_nvp(name, value)); });
}

void RestText::load(const char* name, Odataid& value) {
    inside(name, [&] { load("@odata.id", value.id); });
}

void RestText::load(const char* name, std::vector<std::string>& values) {
    Guarded([&] {
        values.clear();
        const Node array(m_archive->json, name);
        values.resize(m_archive->size());
        for (std::string& value : values) {
            m_archive->json(value);
        }
    });
}

void RestText::load(const char* name, std::vector<Odataid>& values) {
    values.clear();
    insideEach(name, [&] {
        load("@odata.id", values.emplace_back().id);
        return true;
    });
}

void RestText::inside(const char* name, const std::function<void()>& body) {
    Guarded([&] {
        const Node node(m_archive->json, name);
        body();
    });
}

void RestText::insideUnlessNull(const char* name, const std::function<void()>& body) {
    insideExcept({Presence::kNull}, name, body);
}

void RestText::insideOptional(const char* name, const std::function<void()>& body) {
    if (isNamed(name)) {
        insideExcept({Presence::kNull, Presence::kAbsent}, name, body);
    }
}

bool RestText::isNamed(const char* name) const {
    return m_escapes || contains(std::string("\"") + name + "\"");
}

void RestText::insideExcept(Excuses excuses, const char* name, const std::function<void()>& body) {
    bool entered = false;
    try {
        inside(name, [&] {
            entered = true;
            body();
        });
    } catch (const RestTextError&) {
        if (entered || !isExcused(excuses, name)) {
            throw;
        }
    }
}

void RestText::insideEach(const char* name, const std::function<bool()>& body) {
    Guarded([&] {
        const Node array(m_archive->json, name);
        const std::size_t count = m_archive->size();
        for (std::size_t index = 0; index < count; ++index) {
            const Node element(m_archive->json, nullptr);
            if (!body()) {
                return;
            }
        }
    });
}

void RestText::insideEachOptional(const char* name, const std::function<bool()>& body) {
    if (presence(name) == Presence::kValue) {
        insideEach(name, body);
    }
}

bool RestText::isExcused(Excuses excuses, const char* name) {
    return std::find(excuses.begin(), excuses.end(), presence(name)) != excuses.end();
}

RestText::Presence RestText::presence(const char* name) {
    try {
        std::nullptr_t null = nullptr;
        m_archive->json(cereal::make_nvp(name, null));
    } catch (const cereal::RapidJSONException&) {
        return Presence::kValue;  // found, and it is no null
    } catch (const cereal::Exception&) {
        return Presence::kAbsent;
    }
    return Presence::kNull;
}

void LoadStatus(RestText& text, Status& status) {
    text.insideOptional("Status", [&] {
        text.loadOptional("Health", status.Health);
        text.loadOptional("State", status.State);
    });
}

void LoadLocation(RestText& text, const char* name, PLocation& location) {
    text.insideOptional(name, [&] {
        text.insideOptional("PartLocation", [&] {
            PLocation::PartLocation2& part = location.PartLocation;
            text.loadOptional("LocationOrdinalValue", part.LocationOrdinalValue);
            text.loadOptional("LocationType", part.LocationType);
            text.loadOptional("ServiceLabel", part.ServiceLabel);
        });
    });
}

void LoadStorageController(RestText& text, StorageController& controller) {
    text.loadOptional("Name", controller.Name);
    text.loadOptional("Model", controller.Model);
    text.loadOptional("SerialNumber", controller.SerialNumber);
    LoadLocation(text, "Location", controller.Location);
}
