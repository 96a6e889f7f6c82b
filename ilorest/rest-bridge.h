// The source of REST text: what the reader asks of the bridge to the management controller.
#pragma once

#include <cstdint>
#include <string>

#include "server-util.h"

// How the connection to a controller is made.
struct ConnectionSettings {
    // Absolute path of a PEM file, read at each log-in: the controller's certificate is verified with it, and
    // a log-in whose certificate fails, or whose file is of no use, fails as "other error". Empty: the
    // connection is encrypted, but the certificate is not verified.
    std::string caFile;
    // Collections are asked with their members in place where the controller can do that. The texts are the
    // same without.
    bool expand = true;
    // What the helper module says stays off the error stream: the caller shows lastReason() itself.
    bool quiet = false;
};

// One session with a management controller. Failures are thrown as C strings (const char*) that stay valid
// until the next call of the same object. Used by one thread.
class RestBridge {
public:
    // The bridge's last call, for failure texts. A password is recorded as "***".
    struct LastCall {
        std::string fnc, para1, para2, para3;
    };

    virtual ~RestBridge() = default;

    // Opens the session; does nothing but update the vNIC flag when one is open. The interval is in
    // milliseconds.
    virtual void init(const char* host, const char* account, const char* password, std::uint32_t retryCount,
                      std::uint32_t retryInterval) = 0;
    // The JSON text of a resource; empty when the call gave no text.
    virtual std::string getValue(const char* path) = 0;
    // "True", "False" or "None": has this host its address on the controller's virtual-NIC link?
    virtual std::string isvNICAvail(const char* host, std::uint32_t retryCount,
                                    std::uint32_t retryInterval) = 0;
    // The service root's JSON text over the virtual NIC; empty when no session could be opened there.
    virtual std::string getValue_vNIC(const char* host, const char* account, const char* password,
                                      std::uint32_t retryCount, std::uint32_t retryInterval) = 0;
    // The controller's product generation over the virtual NIC; empty when no session could be opened there.
    virtual std::string getProdGen(const char* host, const char* account, const char* password,
                                   std::uint32_t retryCount, std::uint32_t retryInterval) = 0;
    // Ends the session.
    virtual void close() = 0;
    // Ends the session and loads the module afresh. Never throws.
    virtual void reset() = 0;

    virtual void set_vNIC(bool vNIC) = 0;
    virtual bool get_vNIC() const = 0;
    virtual bool isiLOInitialized() const = 0;
    // Was the controller's certificate verified when the open session was opened? False without a session,
    // without a CA file and for the in-band channel, which has no certificate.
    virtual bool isVerified() const { return false; }
    virtual LastCall lastCall() const = 0;
    // Why the last call that failed did so, for people: printable, one line, without secrets. Empty when that
    // is not known, and once another call than close and reset has begun.
    virtual std::string lastReason() const { return {}; }
    // Forgets an error that the interpreter still holds.
    virtual void clearError() = 0;
    // Borrowed; may be null.
    virtual void setLogger(tovaserverutil::TraceLog* logger) = 0;
};

// The controller's end of the virtual-NIC link, as URL, and the host's end.
inline constexpr const char* kVnicUrl = "https://16.1.15.1";
inline constexpr const char* kVnicHostAddress = "16.1.15.2";
// The in-band channel as URL.
inline constexpr const char* kInBandUrl = "blobstore://.";
// What a bridge is given for an account or password that there is none of; it is no secret.
inline constexpr const char* kNoCredential = "None";
