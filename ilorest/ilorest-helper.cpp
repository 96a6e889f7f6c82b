#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include "ilorest-helper.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <utility>

#include "text.h"

namespace {

constexpr const char* kUnit = "ilorest-helper";
constexpr const char* kModule = "baywardilorest";

constexpr const char* kAlreadyInitialized = "Python already initialized.";
constexpr const char* kImportFailed = "Python Module import failed.";
constexpr const char* kFunctionNotFound = "Python Function Not found.";

// The integers that the module's functions answer with.
constexpr long kSuccess = 200;
constexpr long kRefused = 401;
constexpr long kOtherError = 10001;

constexpr const char* kRefusedText = "value=InvalidCredentialsError, SecurityStateError, HpIloInitialError";
constexpr const char* kOtherErrorText = "value=etc error";

constexpr const char* kNoText = "None";

constexpr const char* kInBandScheme = "blobstore://";

// No other URL that the module takes holds the scheme, which is spelled in any case.
bool IsInBand(const char* host) {
    return strcasestr(host, kInBandScheme) != nullptr;
}

// What failure texts may show of a password.
const char* Masked(const char* password) {
    const bool secret = *password != '\0' && std::strcmp(password, kNoCredential) != 0;
    return secret ? "***" : password;
}

std::string Text(const char* text) {
    return text != nullptr ? text : "";
}

// Null, with the Python error pending, when an argument is not UTF-8 or the function raises.
PyRef Call(const PyRef& function, std::initializer_list<const char*> arguments) {
    PyRef tuple(PyTuple_New(static_cast<Py_ssize_t>(arguments.size())));
    Py_ssize_t index = 0;
    for (const char* argument : arguments) {
        PyObject* text = tuple ? PyUnicode_FromString(argument) : nullptr;
        if (text == nullptr) {
            return {};
        }
        PyTuple_SET_ITEM(tuple.get(), index++, text);  // takes the reference
    }
    return tuple ? PyRef(PyObject_CallObject(function.get(), tuple.get())) : PyRef();
}

// -1, which no function of the module answers, for everything that is no integer or too large a one.
long ReadInteger(PyObject* result) {
    int overflow = 0;
    return PyLong_Check(result) ? PyLong_AsLongAndOverflow(result, &overflow) : -1;
}

// Empty for integers that are no error.
const char* ErrorText(long answer) {
    switch (answer) {
        case kRefused:
            return kRefusedText;
        case kOtherError:
            return kOtherErrorText;
        default:
            return "";
    }
}

}  // namespace

iLoRestHelper::iLoRestHelper(std::string moduleFolder, ConnectionSettings settings)
    : m_runtime(std::move(moduleFolder)), m_settings(std::move(settings)) {}

void iLoRestHelper::init(const char* host, const char* account, const char* password,
                         std::uint32_t retryCount, std::uint32_t retryInterval) {
    Record("init", host, account, Masked(password));
    m_retryCount = retryCount;
    m_retryInterval = retryInterval;
    ClearFailure();
    m_vNIC = std::strcmp(host, kVnicUrl) == 0;
    if (m_iLOInitialized) {
        return;
    }
    m_inBand = IsInBand(host);
    if (!m_module) {
        Import();
    }
    if (!m_module && m_settingsRefused) {
        ThrowInitFailed(__LINE__, kOtherErrorText);
    }
    if (!m_module) {
        throw kImportFailed;
    }

    const char* resultText = "";
    {
        const PyRef function = FindFunctionOrImport("init");
        const PyRef result = m_retryCount > 0 ? Call(function, {host, account, password}) : PyRef();
        if (result) {
            const long answer = ReadInteger(result.get());
            m_iLOInitialized = answer == kSuccess;
            m_sessionVerified = m_verifies && !m_inBand;
            resultText = answer == kRefused ? kRefusedText : kOtherErrorText;
        }
        LogPendingError(__LINE__);
    }
    if (!m_iLOInitialized) {
        TakeReport();
        ThrowInitFailed(__LINE__, resultText);
    }
}

std::string iLoRestHelper::getValue(const char* path) {
    return Text(__getValue(path));
}

std::string iLoRestHelper::isvNICAvail(const char* host, std::uint32_t retryCount,
                                       std::uint32_t retryInterval) {
    m_retryCount = retryCount;
    m_retryInterval = retryInterval;
    return Text(__isvNICAvail(host));
}

std::string iLoRestHelper::getValue_vNIC(const char* host, const char* account, const char* password,
                                         std::uint32_t retryCount, std::uint32_t retryInterval) {
    m_retryCount = retryCount;
    m_retryInterval = retryInterval;
    return HasSession(host, account, password) ? Text(__getValue_v1(host, account, password)) : std::string();
}

std::string iLoRestHelper::getProdGen(const char* host, const char* account, const char* password,
                                      std::uint32_t retryCount, std::uint32_t retryInterval) {
    m_retryCount = retryCount;
    m_retryInterval = retryInterval;
    return HasSession(host, account, password) ? Text(__getProdGen(host, account, password)) : std::string();
}

bool iLoRestHelper::HasSession(const char* host, const char* account, const char* password) {
    return Text(__getValue_vNIC(host, account, password)) == "200";
}

void iLoRestHelper::close() {
    Record("close");
    m_iLOInitialized = false;
    if (!m_module) {
        return;
    }
    {
        const PyRef function = FindFunction("close");
        for (std::uint32_t attempt = 0; function && attempt < m_retryCount; ++attempt) {
            if (Call(function, {})) {
                return;
            }
            PyErr_Clear();
            std::this_thread::sleep_for(std::chrono::milliseconds(m_retryInterval));
        }
        if (function) {
            (void)std::snprintf(m_message, sizeof m_message, "%s %u iLoRestReader close failed.(fnc=%s)",
                                kUnit, static_cast<unsigned>(__LINE__), fnc.c_str());
            throw static_cast<char*>(m_message);
        }
    }
    finalize();
    throw kFunctionNotFound;
}

void iLoRestHelper::reset() {
    Record("reset");
    try {
        close();
    } catch (...) {
        // The controller ends a session that nobody uses by itself.
    }
    finalize();
    try {
        Import();
    } catch (...) {
        // The next call imports again and reports.
    }
}

void iLoRestHelper::finalize() {
    m_iLOInitialized = false;
    m_module.reset();
    m_runtime.Finalize();
}

void iLoRestHelper::clearError() {
    if (m_runtime.IsStarted()) {
        PyErr_Clear();
    }
}

void iLoRestHelper::writeLog(const char* text) {
    if (m_logger != nullptr) {
        m_logger->Write("<VK0888> [TR] %s", text);
    }
}

const char* iLoRestHelper::__getValue(const char* path) {
    Record("getValue", path);
    return CallOnce("get", {path}, &iLoRestHelper::ReadTextOrBytes, __LINE__);
}

const char* iLoRestHelper::__getValue_vNIC(const char* host, const char* account, const char* password) {
    Record("get_vnic", host, account, Masked(password));
    return CallOnce("get_vnic", {host, account, password}, &iLoRestHelper::ReadSession, __LINE__);
}

const char* iLoRestHelper::__getValue_v1(const char* host, const char* account, const char* password) {
    Record("get_v1", host, account, Masked(password));
    return CallOnce("get_v1", {host, account, password}, &iLoRestHelper::ReadText, __LINE__);
}

const char* iLoRestHelper::__getProdGen(const char* host, const char* account, const char* password) {
    Record("get_prodgen", host, account, Masked(password));
    return CallOnce("get_prodgen", {host, account, password}, &iLoRestHelper::ReadTextOrBytes, __LINE__);
}

const char* iLoRestHelper::__isvNICAvail(const char* host) {
    Record("__isvNICAvail", host);
    ClearFailure();
    Answer answer;
    bool cannotTell = false;
    {
        const PyRef function = FindFunctionOrImport("is_ip_assigned");
        bool ended = false;
        for (std::uint32_t attempt = 0; !ended && attempt < m_retryCount; ++attempt) {
            PyErr_Clear();  // the failed attempt before
            const PyRef result = Call(function, {host});
            const PyRef form(result ? PyObject_Str(result.get()) : nullptr);
            const std::string text = Text(form ? PyUnicode_AsUTF8(form.get()) : nullptr);
            if (text == "True" || text == "False") {
                answer = Accept(text.c_str());
            } else if (result) {
                answer.resultText = ErrorText(ReadInteger(result.get()));
            }
            cannotTell = text == kNoText;
            ended = answer.accepted || *answer.resultText != '\0' || cannotTell;
        }
        LogPendingError(__LINE__);
    }
    if (cannotTell) {
        return kNoText;
    }
    if (!answer.accepted) {
        ThrowGetFailed(__LINE__, answer.resultText);
    }
    return m_value;
}

const char* iLoRestHelper::CallOnce(const char* name, Arguments arguments,
                                    Answer (iLoRestHelper::*read)(PyObject*), int line) {
    ClearFailure();
    Answer answer;
    {
        const PyRef function = FindFunctionOrImport(name);
        const PyRef result = m_retryCount > 0 ? Call(function, arguments) : PyRef();
        if (result) {
            answer = (this->*read)(result.get());
        }
        LogPendingError(line);
    }
    if (!answer.accepted) {
        ThrowGetFailed(line, answer.resultText);
    }
    return m_value;
}

// Plain string copy: text behind a NUL is not seen. What does not fit is refused as a whole, never cut.
iLoRestHelper::Answer iLoRestHelper::Accept(const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    if (size > sizeof m_value) {
        return {false, kOtherErrorText};
    }
    std::memcpy(m_value, text, size);
    return {true, ""};
}

// A str that is not valid Unicode (lone surrogates) has no UTF-8 text and counts as no str; the Python error
// stays pending for the trace line.
iLoRestHelper::Answer iLoRestHelper::ReadText(PyObject* result) {
    const char* text = PyUnicode_Check(result) ? PyUnicode_AsUTF8(result) : nullptr;
    return text != nullptr ? Accept(text) : Answer{false, ErrorText(ReadInteger(result))};
}

iLoRestHelper::Answer iLoRestHelper::ReadTextOrBytes(PyObject* result) {
    const Answer answer = ReadText(result);
    if (answer.accepted || *answer.resultText != '\0') {
        return answer;
    }
    const char* bytes = PyBytes_AsString(result);
    return bytes != nullptr ? Accept(bytes) : answer;
}

// An integer that is neither success nor a known error is an answer too: no session, and nothing to complain
// about.
iLoRestHelper::Answer iLoRestHelper::ReadSession(PyObject* result) {
    const char* error = ErrorText(ReadInteger(result));
    if (!PyLong_Check(result) || *error != '\0') {
        return {false, error};
    }
    const PyRef form(PyObject_Str(result));
    const char* text = form ? PyUnicode_AsUTF8(form.get()) : nullptr;
    return text != nullptr ? Accept(text) : Answer{};
}

void iLoRestHelper::Record(const char* function, const char* first, const char* second, const char* third) {
    fnc = function;
    para1 = first;
    para2 = second;
    para3 = third;
}

void iLoRestHelper::ClearFailure() {
    std::memset(m_message, 0, sizeof m_message);
    m_reason.clear();
}

// Leaves m_module empty when the module cannot be imported. So does one that
// fails to take a CA file: whoever configured that wants no connection without it.
void iLoRestHelper::Import() {
    if (m_runtime.IsTaken()) {
        throw kAlreadyInitialized;
    }
    m_settingsRefused = false;
    if (m_runtime.Start()) {
        m_module = PyRef(PyImport_ImportModule(kModule));
    }
    if (m_module) {
        Configure();
    }
    if (!m_module || m_settingsRefused) {
        m_module.reset();
        m_runtime.Finalize();
    }
}

// Hands the settings to a module that wants them.
void iLoRestHelper::Configure() {
    const bool wanted = !m_settings.caFile.empty();
    m_verifies = false;
    const PyRef function = FindFunction("configure");
    if (!function) {
        if (wanted) {
            writeLog("The helper module knows no CA file; connections are not verified.");
        }
        return;
    }
    if (HandOver(function)) {
        m_verifies = wanted;
        return;
    }
    const std::string failure = tovaserverutil::Printable(PyExceptionClass_Name(PyErr_Occurred()));
    PyErr_Clear();
    std::string line = "The helper module did not take the settings (" + failure + ").";
    if (wanted) {
        line += " Connections would not be verified, so nobody logs in.";
        m_settingsRefused = true;
        m_reason = line;
    }
    writeLog(line);
}

// False, with the Python error pending, when the function raises or cannot be called.
bool iLoRestHelper::HandOver(const PyRef& configure) const {
    const PyRef path(PyUnicode_DecodeFSDefault(m_settings.caFile.c_str()));
    const PyRef settings(path ? PyDict_New() : nullptr);
    if (!settings || PyDict_SetItemString(settings.get(), "ca file", path.get()) != 0 ||
        (!m_settings.expand && PyDict_SetItemString(settings.get(), "expand", Py_False) != 0) ||
        (m_settings.quiet && PyDict_SetItemString(settings.get(), "quiet", Py_True) != 0)) {
        return false;
    }
    return static_cast<bool>(PyRef(PyObject_CallFunctionObjArgs(configure.get(), settings.get(), nullptr)));
}

// Why the call before failed, as the module tells it. Who has a trace log asks only with a CA file, and never
// about an in-band session or a call that was not made; who has none shows the reason to a person.
void iLoRestHelper::TakeReport() {
    const bool traced = !m_settings.caFile.empty() && !m_inBand && m_retryCount > 0;
    if (!m_module || (m_logger != nullptr && !traced)) {
        return;
    }
    const PyRef function = FindFunction("take_report");
    const PyRef result = function ? Call(function, {}) : PyRef();
    const char* text = result && PyUnicode_Check(result.get()) ? PyUnicode_AsUTF8(result.get()) : nullptr;
    if (text != nullptr) {
        m_reason = tovaserverutil::Printable(text);
    }
    PyErr_Clear();
    if (!m_reason.empty()) {
        writeLog(m_reason);
    }
}

// Empty when the module has no such attribute or it cannot be called.
PyRef iLoRestHelper::FindFunction(const char* name) const {
    PyRef function(PyObject_GetAttrString(m_module.get(), name));
    if (!function || PyCallable_Check(function.get()) == 0) {
        PyErr_Clear();
        return {};
    }
    return function;
}

PyRef iLoRestHelper::FindFunctionOrImport(const char* name) {
    if (!m_module) {
        Import();
    }
    PyRef function = m_module ? FindFunction(name) : PyRef();
    if (!function) {
        GiveUpOnModule();
    }
    return function;
}

// A module that lacks a function is no use: the next call shall import afresh. What close() throws goes
// first.
void iLoRestHelper::GiveUpOnModule() {
    try {
        close();
    } catch (...) {
        finalize();
        throw;
    }
    finalize();
    throw kFunctionNotFound;
}

void iLoRestHelper::LogPendingError(int line) {
    if (PyErr_Occurred() != nullptr) {
        char text[64];
        (void)std::snprintf(text, sizeof text, "%s %u PyErr_Occurred clear", kUnit,
                            static_cast<unsigned>(line));
        PyErr_Clear();
        writeLog(text);
    }
}

void iLoRestHelper::ThrowInitFailed(int line, const char* resultText) {
    (void)std::snprintf(m_message, sizeof m_message,
                        "%s %u iLoRestReader initialize failed. result=%s(fnc=%s para1=%s para2=%s para3=%s)",
                        kUnit, static_cast<unsigned>(line), resultText, fnc.c_str(), para1.c_str(),
                        para2.c_str(), para3.c_str());
    throw static_cast<char*>(m_message);
}

void iLoRestHelper::ThrowGetFailed(int line, const char* resultText) {
    TakeReport();
    (void)std::snprintf(m_message, sizeof m_message,
                        "%s %u iLoRestReader get failed.result=%s(fnc=%s para1=%s)", kUnit,
                        static_cast<unsigned>(line), resultText, fnc.c_str(), para1.c_str());
    throw static_cast<char*>(m_message);
}
