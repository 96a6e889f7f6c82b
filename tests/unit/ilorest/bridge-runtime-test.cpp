// The interpreter itself: whose it is, what it leaves alone, and how often it can be started anew.
#define PY_SSIZE_T_CLEAN
#include <Python.h>
#include <gmock/gmock.h>

#include <array>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <thread>

#include "bridge-fixture.h"
#include "python-runtime.h"
#include "sanitized.h"

using ::testing::HasSubstr;

namespace {

std::string OutputOf(const std::string& command) {
    std::string output;
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::array<char, 4096> part{};
    while (pipe && fgets(part.data(), part.size(), pipe.get()) != nullptr) {
        output += part.data();
    }
    return output;
}

// Sets environment variables for one test.
class Environment {
public:
    void Set(const std::string& name, const std::string& value) {
        const char* before = std::getenv(name.c_str());
        m_before.emplace_back(name, before != nullptr ? std::optional<std::string>(before) : std::nullopt);
        setenv(name.c_str(), value.c_str(), 1);
    }
    Environment() = default;
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;
    ~Environment() {
        for (const auto& [name, value] : m_before) {
            value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
        }
    }

private:
    std::vector<std::pair<std::string, std::optional<std::string>>> m_before;
};

long OpenDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

#ifndef BAYWARD_SANITIZED
long ResidentKilobytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stol(line.substr(6));
        }
    }
    return -1;
}
#endif

void Init(iLoRestHelper& bridge) {
    bridge.init("https://bmc", "admin", "secret", 2, 1);
}

// Whatever runs here before is gone: an interpreter that this test starts itself.
struct OtherInterpreter {
    OtherInterpreter() {
        PyConfig config;
        PyConfig_InitIsolatedConfig(&config);
        PyConfig_SetBytesString(&config, &config.program_name, BAYWARD_PYTHON_EXECUTABLE);
        Py_InitializeFromConfig(&config);
        PyConfig_Clear(&config);
    }
    OtherInterpreter(const OtherInterpreter&) = delete;
    OtherInterpreter& operator=(const OtherInterpreter&) = delete;
    ~OtherInterpreter() { Py_FinalizeEx(); }
};

}  // namespace

TEST(PythonRuntime, WhateverTheEnvironmentSays_IsTheDistributionsPython) {
    const std::string script = "import sys, os; print(sys.version); print(os.__file__); print(sys.path[1:])";
    const std::string expected = OutputOf(std::string(BAYWARD_PYTHON_EXECUTABLE) + " -I -c '" + script + "'");
    ASSERT_THAT(expected, HasSubstr(PY_VERSION));
    FakeModule module;
    module.Does("get", "import sys\nreturn f'{sys.version}\\n{os.__file__}\\n{sys.path[2:]}\\n'");
    module.Answers("get_v1", "__import__('sys').path[0]").Install();
    module.AddFile("elsewhere/os.py", "raise SystemExit\n");
    module.AddFile("elsewhere/bin/python3", "#!/bin/sh\n");
    Environment environment;
    environment.Set("PATH", module.folder() + "/elsewhere/bin");
    environment.Set("PYTHONPATH", module.folder() + "/elsewhere");
    environment.Set("PYTHONHOME", module.folder() + "/elsewhere");
    environment.Set("PYTHONVERBOSE", "3");
    iLoRestHelper bridge(module.folder());
    Init(bridge);
    // `python -c` has no entry of its own in front with -I; the bridge has its module folder there.
    const std::string entries = expected.substr(expected.find('['));
    const std::string actual = bridge.getValue("/");
    EXPECT_EQ(actual.substr(0, actual.find('[')), expected.substr(0, expected.find('[')));
    EXPECT_EQ(actual.substr(actual.find('[')), entries);
    EXPECT_THAT(actual, HasSubstr("-packages"));
    EXPECT_EQ(bridge.getValue_vNIC("https://bmc", "admin", "secret", 2, 1), module.folder());
}

TEST(PythonRuntime, Use_WritesNoBytecode) {
    FakeModule module;
    module.Install();
    iLoRestHelper bridge(module.folder());
    Init(bridge);
    EXPECT_FALSE(module.HasFile("__pycache__"));
}

TEST(PythonRuntime, Use_ChangesNeitherSignalsNorLocale) {
    std::array<struct sigaction, 3> before{};
    constexpr std::array<int, 3> kSignals = {SIGINT, SIGPIPE, SIGXFSZ};
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        ASSERT_EQ(sigaction(kSignals[i], nullptr, &before[i]), 0);
    }
    const std::string locale = std::setlocale(LC_ALL, nullptr);
    FakeModule module;
    module.Install();
    iLoRestHelper bridge(module.folder());
    for (int round = 0; round < 2; ++round) {
        Init(bridge);
        for (std::size_t i = 0; i < kSignals.size(); ++i) {
            struct sigaction now {};
            ASSERT_EQ(sigaction(kSignals[i], nullptr, &now), 0);
            EXPECT_EQ(now.sa_handler, before[i].sa_handler) << kSignals[i];
        }
        EXPECT_EQ(std::setlocale(LC_ALL, nullptr), locale);
        bridge.finalize();
    }
}

TEST(PythonRuntime, EncodingOfFilesAndNames_IsUtf8InTheCLocale) {
    FakeModule module;
    module.Does(
        "get",
        "import sys\nwith open(__file__) as f: return f'{f.encoding} {sys.getfilesystemencoding()}'.lower()");
    module.Install();
    Environment environment;
    environment.Set("LC_ALL", "C");
    iLoRestHelper bridge(module.folder());
    Init(bridge);
    EXPECT_EQ(bridge.getValue("/"), "utf-8 utf-8");
}

TEST(PythonRuntime, FolderBeyondAscii_IsFound) {
    FakeModule module;
    const std::string folder = module.folder() + "/\xe6\x97\xa5";
    module.AddFile("\xe6\x97\xa5/baywardilorest.py", "def init(*arguments): return 200\ndef close(): pass\n");
    iLoRestHelper bridge(folder);
    Init(bridge);
    EXPECT_TRUE(bridge.isiLOInitialized());
}

TEST(PythonRuntime, SomebodyElsesInterpreter_IsLeftAlone) {
    FakeModule module;
    module.Install();
    const OtherInterpreter other;
    ASSERT_NE(Py_IsInitialized(), 0);
    {
        iLoRestHelper bridge(module.folder());
        ExpectLiteral(TextThrownBy([&] { Init(bridge); }), "Python already initialized.");
        ExpectLiteral(TextThrownBy([&] { bridge.getValue("/"); }), "Python already initialized.");
        EXPECT_FALSE(bridge.isPyInitialized());
        EXPECT_NO_THROW(bridge.reset());
        EXPECT_FALSE(bridge.isPyInitialized());
        bridge.finalize();
        EXPECT_NE(Py_IsInitialized(), 0);
    }
    EXPECT_NE(Py_IsInitialized(), 0);
}

TEST(PythonRuntime, Finalize_KeepsTheInterpreterUntilTheObjectEnds) {
    FakeModule module;
    {
        PythonRuntime runtime(module.folder());
        ASSERT_TRUE(runtime.Start());
        EXPECT_TRUE(runtime.IsTaken());
        PyErr_SetString(PyExc_ValueError, "left behind");
        runtime.Finalize();
        EXPECT_NE(Py_IsInitialized(), 0);
        EXPECT_EQ(PyErr_Occurred(), nullptr);
        EXPECT_FALSE(runtime.IsTaken());
        EXPECT_FALSE(runtime.IsStarted());
        PythonRuntime second(module.folder());
        EXPECT_TRUE(second.IsTaken());  // for everybody else it is
        ASSERT_TRUE(runtime.Start());
    }
    EXPECT_EQ(Py_IsInitialized(), 0);
}

TEST(PythonRuntime, Finalize_ForgetsWhatCameWithTheModule) {
    FakeModule module;
    module.AddFile("bayward_private.py", "count = 0\n");
    module.AddFile("elsewhere/site-packages/fetched.py", "count = 0\n");
    module.AddFile("elsewhere/site-packages/space/inner.py", "count = 0\n");
    module.Top(
        "import sys, json, bayward_private\nsys.path.append(os.path.dirname(os.path.abspath(__file__)) + "
        "'/elsewhere/site-packages')\nimport fetched, space.inner");
    module.Does("get",
                "for m in (bayward_private, fetched, space.inner): m.count += 1\n"
                "json.bayward_mark = getattr(json, 'bayward_mark', 0) + 1\n"
                "return ' '.join(str(n) for n in (bayward_private.count, fetched.count, space.inner.count, "
                "json.bayward_mark, sys.path.count(sys.path[-1])))");
    module.Install();
    iLoRestHelper bridge(module.folder());
    Init(bridge);
    EXPECT_EQ(bridge.getValue("/"), "1 1 1 1 1");
    bridge.reset();
    // The standard library stays; the rest is new, and sys.path as it was.
    EXPECT_EQ(bridge.getValue("/"), "1 1 1 2 1");
}

TEST(PythonRuntime, NoMemoryToForget_IsMadeUpForBeforeTheNextImport) {
    FakeModule module;
    module.AddFile("bayward_private.py", "count = 0\n");
    module.AddFile("elsewhere/site-packages/scarce.py",
                   "class Scarce:\n"
                   "    failures = 0\n"
                   "    def __getattr__(self, name):\n"
                   "        self.failures -= 1\n"
                   "        raise MemoryError if self.failures >= 0 else AttributeError\n");
    module.Top(
        "import sys, bayward_private\nsys.path.append(os.path.dirname(os.path.abspath(__file__)) + "
        "'/elsewhere/site-packages')\nimport scarce, string\n"
        "string.scarce = getattr(string, 'scarce', None) or scarce.Scarce()\n"
        "sys.modules['scarce memory'] = string.scarce");
    module.Does("get",
                "bayward_private.count += 1\nstring.scarce.failures = 2\n"
                "return f'{bayward_private.count} {string.scarce.failures}'");
    module.Install();
    iLoRestHelper bridge(module.folder());
    Init(bridge);
    EXPECT_EQ(bridge.getValue("/"), "1 2");
    bridge.finalize();                                                                   // the first failure
    ExpectLiteral(TextThrownBy([&] { Init(bridge); }), "Python Module import failed.");  // the second one
    Init(bridge);
    EXPECT_EQ(bridge.getValue("/"), "1 2");
}

TEST(PythonRuntime, FinderThatFailsWhileModulesAreForgotten_IsSurvived) {
    FakeModule module;
    module.Top(
        "import sys\nclass Finder:\n    def find_spec(self, *unused): return None\n"
        "    def invalidate_caches(self): raise TypeError('wrong')\nsys.meta_path.append(Finder())");
    module.Install();
    iLoRestHelper bridge(module.folder());
    for (int i = 0; i < 3; ++i) {
        Init(bridge);
        EXPECT_TRUE(bridge.isiLOInitialized());
        bridge.finalize();
    }
}

TEST(PythonRuntime, Start_FollowsTheWorkingDirectory) {
    FakeModule first;
    first.Answers("get", "'first'").Install();
    FakeModule second;
    second.Answers("get", "'second'").Install();
    const std::filesystem::path before = std::filesystem::current_path();
    iLoRestHelper bridge(".");
    std::filesystem::current_path(first.folder());
    Init(bridge);
    EXPECT_EQ(bridge.getValue("/"), "first");
    bridge.finalize();
    std::filesystem::current_path(second.folder());
    EXPECT_EQ(bridge.getValue("/"), "second");
    std::filesystem::current_path(before);
}

TEST(PythonRuntime, ModuleThatWrecksModuleTable_IsSurvived) {
    FakeModule module;
    module.Top(
        "import sys\nclass Trap:\n    def __getattr__(self, name): raise KeyboardInterrupt\n"
        "    def __del__(self): raise ValueError('late')\nsys.modules['trap'] = Trap()\n"
        "sys.modules['nothing'] = None");
    module.Install();
    iLoRestHelper bridge(module.folder());
    testing::internal::CaptureStderr();
    for (int i = 0; i < 3; ++i) {
        Init(bridge);
        EXPECT_TRUE(bridge.isiLOInitialized());
        bridge.finalize();
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(PythonRuntime, ErrorsWhileItFinalises_StaySilent) {
    FakeModule module;
    module.Top(
        "class Late:\n    def __del__(self): raise ValueError('late')\nlate = Late()\nimport atexit\n"
        "def leave(): raise OSError('leaving')\natexit.register(leave)");
    module.Install();
    testing::internal::CaptureStderr();
    {
        iLoRestHelper bridge(module.folder());
        Init(bridge);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(PythonRuntime, FiftyTimesOnAThreadOfItsOwn_KeepsMemoryAndDescriptors) {
    FakeModule module;
    // Extension modules, and a megabyte that would pile up if the module were not let go.
    module.Top("import ssl, http.client, json, datetime, hashlib\nballast = bytearray(b'x' * (1 << 20))");
    module.Answers("get", "json.dumps({'Id': str(datetime.datetime.now())})").Install();
    std::thread worker([&] {
        iLoRestHelper bridge(module.folder());
        const auto cycle = [&bridge] {
            Init(bridge);
            EXPECT_THAT(bridge.getValue("/"), HasSubstr("Id"));
            bridge.reset();
            bridge.finalize();
        };
        for (int i = 0; i < 5; ++i) {
            cycle();
        }
        const long descriptors = OpenDescriptors();
#ifndef BAYWARD_SANITIZED
        const long memory = ResidentKilobytes();
#endif
        for (int i = 0; i < 50; ++i) {
            cycle();
        }
        EXPECT_EQ(OpenDescriptors(), descriptors);
#ifndef BAYWARD_SANITIZED
        EXPECT_LT(ResidentKilobytes() - memory, 4096);
#endif
    });
    worker.join();
    EXPECT_EQ(Py_IsInitialized(), 0);
}

TEST(PyRef, Moves_PassTheOneReferenceOn) {
    const OtherInterpreter interpreter;
    PyObject* object = PyList_New(0);
    const auto count = [object] { return Py_REFCNT(object); };
    Py_INCREF(object);  // the test's own
    {
        PyRef first(object);
        PyRef second(std::move(first));
        EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): empty by contract
        EXPECT_EQ(second.get(), object);
        PyRef third;
        third = std::move(second);
        EXPECT_EQ(count(), 2);
        Py_INCREF(object);
        third = PyRef(object);
        EXPECT_EQ(count(), 2);
        PyObject* given = third.release();
        EXPECT_FALSE(third);
        EXPECT_EQ(count(), 2);
        third = PyRef(given);
        third.reset();
        EXPECT_EQ(count(), 1);
    }
    EXPECT_EQ(count(), 1);
    Py_DECREF(object);
}
