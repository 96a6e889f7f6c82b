#include "rest-text.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <new>
#include <set>
#include <string>

#include "sanitized.h"

namespace {

std::int64_t Whole(const std::string& number) {
    RestText text("{\"N\":" + number + "}");
    std::int64_t value = -7;
    text.load("N", value);
    return value;
}

// The text of the failure that a call makes; empty for none.
template <class Call>
std::string ErrorText(Call call) {
    try {
        call();
    } catch (const RestTextError& error) {
        return error.what();
    }
    return "";
}

#ifndef BAYWARD_SANITIZED
constexpr int kParsed = 10;
constexpr int kNoMemory = 11;

// How a process of its own ends that parses the text with no more than `left` bytes of data to take.
int StatusOfParse(const std::string& text, std::uint64_t left) {
    const pid_t child = fork();
    if (child == 0) {
        std::ifstream statm("/proc/self/statm");
        std::uint64_t pages = 0;
        for (int field = 0; field < 6; ++field) {
            statm >> pages;  // the sixth is what RLIMIT_DATA counts
        }
        const rlim_t limit = pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)) + left;
        const rlimit data{limit, limit};
        if (pages == 0 || setrlimit(RLIMIT_DATA, &data) != 0) {
            _exit(EXIT_FAILURE);
        }
        try {
            const RestText parsed(text);
        } catch (const std::bad_alloc&) {
            _exit(kNoMemory);
        }
        _exit(kParsed);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status) << " with " << left
                                   << " bytes left";
    return WEXITSTATUS(status);
}
#endif

}  // namespace

TEST(RestText, MembersByName_InAnyOrderAndNested) {
    RestText text(R"({"b":true,"n":{"s":"deep","o":{"@odata.id":"/x"}},"l":["a","b"],"i":5,"s":"top"})");
    std::string s;
    text.load("s", s);
    EXPECT_EQ(s, "top");
    std::int32_t i = 0;
    text.load("i", i);
    EXPECT_EQ(i, 5);
    text.inside("n", [&] {
        text.load("s", s);
        Odataid link;
        text.load("o", link);
        EXPECT_EQ(link.id, "/x");
    });
    EXPECT_EQ(s, "deep");
    std::vector<std::string> list{"old"};
    text.load("l", list);
    EXPECT_EQ(list, (std::vector<std::string>{"a", "b"}));
    bool b = false;
    text.load("b", b);
    EXPECT_TRUE(b);
    text.load("s", s);
    EXPECT_EQ(s, "top");
}

TEST(RestText, MissingMember_IsNamed) {
    RestText text(R"({"a":"1"})");
    std::string s;
    EXPECT_EQ(ErrorText([&] { text.load("Model", s); }),
              "JSON Parsing failed - provided NVP (Model) not found");
    text.load("a", s);  // still usable
    EXPECT_EQ(s, "1");
}

TEST(RestText, AnotherTypeThanAskedFor_Fails) {
    const char* const values[] = {"null", "1", "1.5", "true", "\"s\"", "{}", "[]", "[1]", "{\"x\":1}"};
    for (const std::string value : values) {
        const std::string json = "{\"K\":" + value + "}";
        const auto fails = [&](auto sample) {
            RestText text(json);
            return !ErrorText([&] { text.load("K", sample); }).empty();
        };
        EXPECT_EQ(fails(std::string()), value[0] != '"') << value;
        EXPECT_EQ(fails(std::int64_t()), value[0] != '1') << value;
        EXPECT_EQ(fails(std::int32_t()), value[0] != '1') << value;
        EXPECT_EQ(fails(bool()), value != "true") << value;
        EXPECT_EQ(fails(std::vector<std::string>()), value != "[]") << value;
        EXPECT_EQ(fails(std::vector<Odataid>()), value != "[]") << value;
        EXPECT_TRUE(fails(Odataid())) << value;
    }
}

TEST(RestText, NoJsonObject_Fails) {
    const std::string nul("{\"a\"\0:1}", 8);
    for (const std::string& json :
         {std::string(), std::string(" "), std::string("null"), std::string("7"), std::string("\"s\""),
          std::string("{"), std::string("{\"a\""), std::string("{\"a\":"), std::string("{\"a\":1"),
          std::string("{\"a\":1}}"), std::string("{\"a\":1}x"), std::string("{'a':1}"), std::string("{a:1}"),
          std::string("{\"a\":1,}"), std::string("[1"), std::string("\xff\xfe"), std::string("%s%n"), nul}) {
        EXPECT_FALSE(ErrorText([&] { RestText text(json); }).empty()) << json;
    }
}

TEST(RestText, EveryTruncationOfAResource_FailsWithoutHarm) {
    const std::string json =
        R"({"Members":[{"@odata.id":"/redfish/v1/Systems/1/"}],"Name":"a\u00e9b","N":-1.5e3,"T":true,"Z":null})";
    for (std::size_t length = 0; length < json.size(); ++length) {
        EXPECT_FALSE(ErrorText([&] { RestText text(json.substr(0, length)); }).empty()) << length;
    }
    EXPECT_EQ(ErrorText([&] { RestText text(json); }), "");
}

TEST(RestText, DeepNesting_IsNoDanger) {
    constexpr int kDepth = 200000;  // far more than the bridge lets through
    const std::string open(kDepth, '[');
    EXPECT_FALSE(ErrorText([&] { RestText text("{\"a\":" + open); }).empty());
    RestText text("{\"a\":" + open + std::string(kDepth, ']') + ",\"b\":\"found\"}");
    std::string value;
    text.load("b", value);
    EXPECT_EQ(value, "found");
    EXPECT_FALSE(ErrorText([&] { text.load("a", value); }).empty());
    std::string objects;
    for (int i = 0; i < 3000; ++i) {
        objects += "{\"a\":";
    }
    EXPECT_FALSE(ErrorText([&] { RestText unfinished(objects); }).empty());
}

TEST(RestText, DuplicateMembers_GiveOneOfThem) {
    RestText text(R"({"a":"first","a":"second","b":"last"})");
    std::string value;
    text.load("b", value);
    text.load("a", value);
    EXPECT_EQ(value, "first");
}

TEST(RestText, ArrayAtTheTop_HasNoMembers) {
    for (const char* json : {"[]", "[1,2]", "{}"}) {
        RestText text(json);
        std::vector<Odataid> members;
        EXPECT_EQ(ErrorText([&] { text.load("Members", members); }),
                  "JSON Parsing failed - provided NVP (Members) not found")
            << json;
        std::string value = "kept";
        text.loadOptional("Model", value);
        EXPECT_EQ(value, "kept");
    }
}

TEST(RestText, WholeNumber_CutsARealAndStopsAtItsRange) {
    constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(Whole("100"), 100);
    EXPECT_EQ(Whole("100.0"), 100);
    EXPECT_EQ(Whole("99.99"), 99);
    EXPECT_EQ(Whole("-1.9"), -1);
    EXPECT_EQ(Whole("0.9"), 0);
    EXPECT_EQ(Whole("9223372036854775807"), kMax);
    EXPECT_EQ(Whole("-9223372036854775808"), kMin);
    EXPECT_EQ(Whole("9007199254740993"), 9007199254740993);  // no detour over a double
    EXPECT_EQ(Whole("9223372036854775808"), kMax);
    EXPECT_EQ(Whole("18446744073709551615"), kMax);
    EXPECT_EQ(Whole("1e300"), kMax);
    EXPECT_EQ(Whole("-1e300"), kMin);
    for (const char* number : {"NaN", "Inf", "-Infinity", "1e400"}) {
        EXPECT_FALSE(ErrorText([&] { Whole(number); }).empty()) << number;
    }
}

TEST(RestText, ZeroWithAnExponent_IsZero) {
    for (const char* number :
         {"0e0", "0e30", "0e39", "0.0e40", "-0e45", "0.0e100", "0e200", "0e308", "0e-400"}) {
        EXPECT_EQ(Whole(number), 0) << number;
    }
}

TEST(RestText, SmallWholeNumber_StopsAtItsRange) {
    const struct {
        const char* number;
        std::int32_t value;
    } rows[] = {{"5.7", 5},
                {"2147483647", std::numeric_limits<std::int32_t>::max()},
                {"2147483648", std::numeric_limits<std::int32_t>::max()},
                {"1e99", std::numeric_limits<std::int32_t>::max()},
                {"-2147483649", std::numeric_limits<std::int32_t>::min()}};
    for (const auto& row : rows) {
        RestText text(std::string("{\"N\":") + row.number + "}");
        std::int32_t value = 0;
        text.load("N", value);
        EXPECT_EQ(value, row.value) << row.number;
    }
}

TEST(RestText, NullInTheTwoSpellings_IsSkipped) {
    for (const char* json : {R"({"Model":null})", R"({"Model": null})"}) {
        RestText text(json);
        std::string model = "kept";
        text.loadOptional("Model", model);
        text.loadUnlessNull("Model", model);
        text.loadTolerant("Model", model);
        EXPECT_EQ(model, "kept");
    }
}

TEST(RestText, NullElsewhereInTheText_CountsForTolerantLoadsOnly) {
    RestText text(R"({"n":{"Model":null},"Model":"top"})");
    std::string model = "kept";
    text.loadTolerant("Model", model);
    EXPECT_EQ(model, "kept");
    text.loadOptional("Model", model);
    EXPECT_EQ(model, "top");
    model = "kept";
    text.loadUnlessNull("Model", model);
    EXPECT_EQ(model, "top");
}

TEST(RestText, NullInAnotherSpelling_FailsTolerantLoadsOnly) {
    for (const char* json :
         {R"({"Model" :null})", R"({"Model" : null})", R"({"Model":  null})", "{\"Model\":\tnull}"}) {
        RestText text(json);
        std::string model;
        EXPECT_FALSE(ErrorText([&] { text.loadTolerant("Model", model); }).empty()) << json;
        EXPECT_TRUE(ErrorText([&] { text.loadOptional("Model", model); }).empty()) << json;
        EXPECT_TRUE(ErrorText([&] { text.loadUnlessNull("Model", model); }).empty()) << json;
        EXPECT_EQ(model, "");
    }
}

TEST(RestText, OptionalMember_MayBeMissingButNotOfAnotherType) {
    RestText text(R"({"n":{"Model":"nested"},"Size":"x"})");
    std::string model = "kept";
    text.loadOptional("Model", model);
    EXPECT_EQ(model, "kept");
    std::int64_t size = 3;
    EXPECT_FALSE(ErrorText([&] { text.loadOptional("Size", size); }).empty());
    bool ran = false;
    text.insideOptional("Missing", [&] { ran = true; });
    EXPECT_FALSE(ran);
    text.insideOptional("n", [&] { text.loadOptional("Model", model); });
    EXPECT_EQ(model, "nested");
}

TEST(RestText, NameWrittenWithEscapes_IsFound) {
    RestText text(R"({"\u0049d":"1","\u0053tatus":{"Health":"OK"}})");
    std::string id = "none";
    text.loadOptional("Id", id);
    EXPECT_EQ(id, "1");
    Status status;
    LoadStatus(text, status);
    EXPECT_EQ(status.Health, "OK");
}

TEST(RestText, FailureInsideANestedObject_LeavesTheTextUsable) {
    RestText text(R"({"n":{"x":1},"l":[{"@odata.id":"/1"},{"other":1}],"s":"top"})");
    std::string value;
    EXPECT_FALSE(ErrorText([&] { text.inside("n", [&] { text.load("y", value); }); }).empty());
    std::vector<Odataid> links;
    EXPECT_FALSE(ErrorText([&] { text.load("l", links); }).empty());
    text.load("s", value);
    EXPECT_EQ(value, "top");
}

TEST(RestText, LinkList_TakesItsLengthFromTheArray) {
    RestText text(R"({"Members":[{"@odata.id":"/a"},{"@odata.id":"/b"}],"Members@odata.count":1,"Empty":[],)"
                  R"("Empty@odata.count":9})");
    std::vector<Odataid> links{{"/old"}};
    text.load("Members", links);
    EXPECT_EQ(links, (std::vector<Odataid>{{"/a"}, {"/b"}}));
    text.load("Empty", links);
    EXPECT_TRUE(links.empty());
}

TEST(RestText, EachElement_UntilTheBodyHasEnough) {
    RestText text(R"({"a":[{"n":1},{"n":2},{"n":3}],"z":"after"})");
    std::vector<std::int64_t> seen;
    text.insideEach("a", [&] {
        std::int64_t number = 0;
        text.load("n", number);
        seen.push_back(number);
        return number < 2;
    });
    EXPECT_EQ(seen, (std::vector<std::int64_t>{1, 2}));
    std::string value;
    text.load("z", value);
    EXPECT_EQ(value, "after");
    EXPECT_FALSE(ErrorText([&] { text.insideEach("z", [] { return true; }); }).empty());
}

#ifndef BAYWARD_SANITIZED  // a sanitizer keeps memory of its own
TEST(RestText, NoMemory_IsThrownWhereverItEnds) {
    std::string list;
    for (int number = 0; number < 20000; ++number) {
        list += "{\"number\":[" + std::to_string(number) + "]},";
    }
    const std::string big(1 << 20, 'x');
    for (const std::string& text : {"{\"a\":\"" + big + "\"}", "[" + list + "{}]",
                                    std::string(200000, '[') + std::string(200000, ']')}) {
        std::set<int> statuses;
        for (std::uint64_t left = 0; left < (24U << 20); left += left / 8 + (64U << 10)) {
            statuses.insert(StatusOfParse(text, left));
        }
        EXPECT_EQ(statuses, (std::set<int>{kParsed, kNoMemory})) << text.substr(0, 16);
    }
}
#endif

TEST(RestText, Shape_IsTheQuotedNameWithItsColon) {
    RestText text(R"({"StorageControllers":[],"Drives" :[]})");
    EXPECT_TRUE(text.hasShape("StorageControllers"));
    EXPECT_FALSE(text.hasShape("Controllers"));
    EXPECT_FALSE(text.hasShape("Drives"));
}

TEST(Odataid, Below_HasExactlyOneSlashBetween) {
    EXPECT_EQ(Odataid{"/redfish/v1/Systems/1"}.below("Storage/").id, "/redfish/v1/Systems/1/Storage/");
    EXPECT_EQ(Odataid{"/redfish/v1/Systems/1/"}.below("Storage/").id, "/redfish/v1/Systems/1/Storage/");
}

TEST(PLocation, Text_IsTheLabelOrElseTypeAndOrdinal) {
    PLocation location;
    EXPECT_EQ(location.text(), "");
    location.PartLocation.LocationOrdinalValue = 3;
    EXPECT_EQ(location.text(), "");
    location.PartLocation.LocationType = "Bay";
    EXPECT_EQ(location.text(), "Bay 3");
    location.PartLocation.ServiceLabel = "Slot=18:Port=2:Box=1:Bay=8";
    EXPECT_EQ(location.text(), "Slot=18:Port=2:Box=1:Bay=8");
}
