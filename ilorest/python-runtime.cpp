#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include "python-runtime.h"

#include <sys/mman.h>

#include <filesystem>
#include <initializer_list>
#include <system_error>
#include <utility>

namespace {

// Python's own remarks (warnings, exceptions in destructors) go nowhere. What a module logs still reaches the
// error stream, which the systemd journal keeps of the service.
constexpr const char* kQuieten = R"(
import sys, warnings

warnings.simplefilter('ignore')
sys.unraisablehook = lambda *unused: None
)";

// While Python finalises, the hook is gone and remarks go straight to the error stream. The method looks no
// name up, so it works until the very end.
constexpr const char* kSilenceErrors = R"(
import io, sys

class Nowhere(io.TextIOBase):
    def write(self, text):
        return text.__len__()

sys.stderr = sys.__stderr__ = Nowhere()
)";

// Run with `folder` and `own_modules` as globals. Modules of the standard library stay: reloading them would
// only cost memory. Importers look at their folders again, as those of a new interpreter would.
constexpr const char* kForgetModules = R"(
import gc, importlib, os, sys

def place(module):
    try:
        # A namespace package has folders but no file.
        return str(getattr(module, '__file__', None) or list(module.__path__)[0])
    except MemoryError:
        raise
    except BaseException:
        return ''

for name in set(sys.modules) - own_modules:
    file = place(sys.modules[name])
    if (file.startswith(os.path.join(folder, ''))
            or not {'site-packages', 'dist-packages'}.isdisjoint(file.split(os.sep))):
        del sys.modules[name]
importlib.invalidate_caches()
gc.collect()
)";

// Runs Python text in a name space of its own; false, with the Python error pending, when it raises.
bool Run(const char* script, std::initializer_list<std::pair<const char*, PyObject*>> names) {
    const PyRef globals(PyDict_New());
    if (!globals || PyDict_SetItemString(globals.get(), "__builtins__", PyEval_GetBuiltins()) != 0) {
        return false;
    }
    for (const auto& [name, value] : names) {
        if (value == nullptr || PyDict_SetItemString(globals.get(), name, value) != 0) {
            return false;
        }
    }
    const PyRef done(PyRun_String(script, Py_file_input, globals.get(), globals.get()));
    PyDict_Clear(globals.get());  // functions of the text and its name space refer to each other
    return static_cast<bool>(done);
}

// An interpreter that runs out of memory before it is whole aborts the process; afterwards it raises. So it
// is not begun with less room than it takes until then, and some to spare.
bool HasRoom() {
    constexpr std::size_t kRoom = std::size_t{24} * 1024 * 1024;
    void* const room = mmap(nullptr, kRoom, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return room != MAP_FAILED && munmap(room, kRoom) == 0;
}

// Clears the configuration on every way out.
struct Configuration {
    Configuration() { PyConfig_InitIsolatedConfig(&config); }
    ~Configuration() { PyConfig_Clear(&config); }
    Configuration(const Configuration&) = delete;
    Configuration& operator=(const Configuration&) = delete;

    PyConfig config;
};

std::string Resolved(const std::string& folder) {
    std::error_code error;
    const std::filesystem::path path =
        std::filesystem::weakly_canonical(std::filesystem::path(folder), error);
    return error ? folder : path.string();
}

}  // namespace

void PyRef::reset() noexcept {
    PyObject* object = release();
    Py_XDECREF(object);
}

PythonRuntime::PythonRuntime(std::string moduleFolder) : m_moduleFolder(std::move(moduleFolder)) {}

PythonRuntime::~PythonRuntime() {
    Finalize();
    Shutdown();
}

bool PythonRuntime::IsTaken() const noexcept {
    return Py_IsInitialized() != 0 && m_state != State::kIdle;
}

bool PythonRuntime::Start() {
    if (m_state == State::kStopped && !Initialize()) {
        return false;
    }
    if (!m_forgotten && !Forget()) {
        return false;
    }
    if (!PreparePath()) {
        PyErr_Clear();
        return false;
    }
    m_forgotten = false;
    m_state = State::kStarted;
    return true;
}

void PythonRuntime::Finalize() noexcept {
    if (m_state != State::kStarted) {
        return;
    }
    PyErr_Clear();
    m_state = State::kIdle;
    m_forgotten = Forget();
}

bool PythonRuntime::Initialize() {
    if (!HasRoom()) {
        return false;
    }
    PyPreConfig before;
    PyPreConfig_InitIsolatedConfig(&before);
    before.utf8_mode = 1;
    if (PyStatus_Exception(Py_PreInitialize(&before)) != 0) {
        return false;
    }
    // The program's name is what Python finds its standard library by; without it the first python3 on PATH
    // would lend its own, of another version.
    Configuration isolated;
    isolated.config.write_bytecode = 0;
    if (PyStatus_Exception(PyConfig_SetBytesString(&isolated.config, &isolated.config.program_name,
                                                   BAYWARD_PYTHON_EXECUTABLE)) != 0 ||
        PyStatus_Exception(Py_InitializeFromConfig(&isolated.config)) != 0) {
        return false;
    }
    m_state = State::kIdle;
    PyObject* path = PySys_GetObject("path");
    PyObject* modules = PySys_GetObject("modules");
    m_forgotten = true;
    m_ownPath = PyRef(path != nullptr ? PySequence_List(path) : nullptr);
    m_ownModules = PyRef(modules != nullptr ? PySet_New(modules) : nullptr);
    if (!m_ownPath || !m_ownModules || !Run(kQuieten, {})) {
        Shutdown();
        return false;
    }
    return true;
}

// sys.path becomes the module folder followed by Python's own entries, whatever was done to it since the last
// start.
bool PythonRuntime::PreparePath() {
    m_resolvedFolder = Resolved(m_moduleFolder);
    const PyRef path(PySequence_List(m_ownPath.get()));
    const PyRef folder(PyUnicode_DecodeFSDefault(m_resolvedFolder.c_str()));
    return path && folder && PyList_Insert(path.get(), 0, folder.get()) == 0 &&
           PySys_SetObject("path", path.get()) == 0;
}

// False when there was no memory for it. Then a part of a module may be left, which the other parts do not
// fit once they are read anew. What else somebody's module may raise here leaves nothing that a second time
// would take away.
bool PythonRuntime::Forget() {
    const PyRef folder(PyUnicode_DecodeFSDefault(m_resolvedFolder.c_str()));
    const bool done = Run(kForgetModules, {{"folder", folder.get()}, {"own_modules", m_ownModules.get()}});
    const bool lackedMemory = !done && PyErr_ExceptionMatches(PyExc_MemoryError) != 0;
    PyErr_Clear();
    return !lackedMemory;
}

void PythonRuntime::Shutdown() noexcept {
    if (m_state == State::kStopped) {
        return;
    }
    m_state = State::kStopped;
    PyErr_Clear();
    if (!Run(kSilenceErrors, {})) {
        PyErr_Clear();
    }
    m_ownPath.reset();
    m_ownModules.reset();
    // It reports only that buffered output could not be written, which leaves nothing to be done.
    Py_FinalizeEx();
}
