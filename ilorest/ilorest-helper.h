// The bridge to the management controller: one session, spoken by the helper module "baywardilorest" in an
// embedded Python interpreter.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>

#include "python-ref.h"
#include "python-runtime.h"
#include "rest-bridge.h"

// Where the service's module lies: in the working directory.
inline constexpr const char* kModuleFolder = ".";

// Starts the interpreter and loads the module on first use, forgets the module with finalize() and loads it
// anew on the next use; the interpreter itself ends with the object (python-runtime.h). States: no module ->
// module loaded -> session open -> module loaded (close) -> no module (finalize).
//
// Failures are thrown as text. C-string literals (const char*): "Python already initialized.", "Python Module
// import failed." and "Python Function Not found.". A char* into a buffer of this object, valid until its
// next call: the "initialize failed", "get failed" and "close failed" texts with the step's arguments. A
// result text in them, "value=InvalidCredentialsError, SecurityStateError, HpIloInitialError", tells that the
// controller refused the account.
//
// Passwords go to Python only: what is recorded of them is "***".
//
// Two functions of the module are optional. `configure` is called after every import with a dict of the
// settings ("ca file": its path, empty for none; "quiet": True and "expand": False, each only when that is
// wanted) and raises nothing.
// A failure of it is one trace line. With a CA file the module is given up then as after a failed import,
// init fails as "other error", and the next call imports it anew: nobody logs in unverified. Without one
// nothing else changes. A module that lacks the function is used either way, and a CA file that it does not
// know is one trace line.
// `take_report` returns in one line without secrets why the last call failed, or an empty text, which is kept
// for lastReason(). It is called after a failed call; with a logger only when there is a CA file and the
// session is none over the in-band channel, and the line goes to the trace log then.
//
// Every call, the destructor included, comes from one thread; there are no locks. Python errors never stay
// pending.
class iLoRestHelper : public RestBridge {
public:
    iLoRestHelper() : iLoRestHelper(kModuleFolder) {}
    explicit iLoRestHelper(std::string moduleFolder, ConnectionSettings settings = {});
    ~iLoRestHelper() override = default;
    iLoRestHelper(const iLoRestHelper&) = delete;
    iLoRestHelper& operator=(const iLoRestHelper&) = delete;

    // Opens the session with one call of the module's `init`. With a retry count of 0 that call is not made
    // and init fails. While a session is open only the vNIC flag, the recorded call and the two counts
    // change.
    void init(const char* host, const char* account, const char* password, std::uint32_t retryCount,
              std::uint32_t retryInterval) override;

    // One call of the module's `get`. Fails with a retry count of 0, with a result that is neither text nor
    // bytes, and with one of 18,196 bytes or more.
    std::string getValue(const char* path) override;

    // The operations below use, and leave behind, the counts they are given.

    // Asks up to retryCount times, without a pause, until the answer is "True", "False" or "None".
    std::string isvNICAvail(const char* host, std::uint32_t retryCount, std::uint32_t retryInterval) override;
    std::string getValue_vNIC(const char* host, const char* account, const char* password,
                              std::uint32_t retryCount, std::uint32_t retryInterval) override;
    std::string getProdGen(const char* host, const char* account, const char* password,
                           std::uint32_t retryCount, std::uint32_t retryInterval) override;

    // Calls the module's `close` up to the retry count times, with a pause of the retry interval after each
    // failure. The module stays loaded; does nothing but clear the session's flag when none is.
    void close() override;
    // Closes, finalises and imports the module again, whatever fails on the way. Never throws.
    void reset() override;
    // Drops the module and finalises the interpreter; a session that is still open is forgotten.
    void finalize();

    void set_vNIC(bool vNIC) override { m_vNIC = vNIC; }
    bool get_vNIC() const override { return m_vNIC; }
    bool isiLOInitialized() const override { return m_iLOInitialized; }
    bool isVerified() const override { return m_iLOInitialized && m_sessionVerified; }
    bool isPyInitialized() const { return static_cast<bool>(m_module); }
    LastCall lastCall() const override { return {fnc, para1, para2, para3}; }
    std::string lastReason() const override { return m_reason; }
    void clearError() override;

    void setLogger(tovaserverutil::TraceLog* logger) override { m_logger = logger; }
    // One trace line, "<VK0888> [TR] " and the text; nothing without a logger.
    void writeLog(const std::string& text) { writeLog(text.c_str()); }
    void writeLog(const char* text);

private:
    // What was made of a module function's result.
    struct Answer {
        bool accepted = false;        // the text is in the value buffer
        const char* resultText = "";  // the result as failure texts show it
    };
    using Arguments = std::initializer_list<const char*>;

    // The workers: a pointer into the value buffer, or the literal "None". Throw like their public namesakes.
    // NOLINTBEGIN(bugprone-reserved-identifier): these are their established names; no implementation uses
    // them.
    const char* __getValue(const char* path);
    const char* __isvNICAvail(const char* host);
    const char* __getValue_vNIC(const char* host, const char* account, const char* password);
    const char* __getValue_v1(const char* host, const char* account, const char* password);
    const char* __getProdGen(const char* host, const char* account, const char* password);
    // NOLINTEND(bugprone-reserved-identifier)

    void Record(const char* function, const char* first = "", const char* second = "",
                const char* third = "");
    void ClearFailure();
    void Import();
    void Configure();
    bool HandOver(const PyRef& configure) const;
    void TakeReport();
    PyRef FindFunction(const char* name) const;
    PyRef FindFunctionOrImport(const char* name);
    [[noreturn]] void GiveUpOnModule();

    // Calls the module function once, unless the retry count is 0, reads its result and returns the value
    // buffer.
    const char* CallOnce(const char* name, Arguments arguments, Answer (iLoRestHelper::*read)(PyObject*),
                         int line);
    bool HasSession(const char* host, const char* account, const char* password);

    Answer Accept(const char* text);
    Answer ReadText(PyObject* result);
    Answer ReadTextOrBytes(PyObject* result);
    Answer ReadSession(PyObject* result);

    void LogPendingError(int line);
    [[noreturn]] void ThrowInitFailed(int line, const char* resultText);
    [[noreturn]] void ThrowGetFailed(int line, const char* resultText);

    PythonRuntime m_runtime;  // first, so that it outlives the module reference

    std::string fnc, para1, para2, para3;  // the last call, for failure texts only
    char m_message[1024] = {};             // the last failure; what is thrown points here
    std::string m_reason;                  // why it failed, as the module tells it
    PyRef m_module;
    std::uint32_t m_retryCount = 0;
    std::uint32_t m_retryInterval = 0;  // milliseconds
    char m_value[18196] = {};           // the last result text
    [[maybe_unused]] std::uint32_t m_reserved = 0;
    bool m_iLOInitialized = false;
    ConnectionSettings m_settings;
    bool m_verifies = false;         // the imported module has taken the CA file
    bool m_settingsRefused = false;  // the last import was given up because it has not
    bool m_inBand = false;           // the last log-in was one over the in-band channel
    bool m_sessionVerified = false;
    bool m_vNIC = false;
    tovaserverutil::TraceLog* m_logger = nullptr;
};
