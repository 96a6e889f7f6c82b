// An owned reference to a Python object, without drawing <Python.h> into every includer.
#pragma once

#include <utility>

// What PyObject is an alias of in every CPython 3.
struct _object;  // NOLINT(bugprone-reserved-identifier): CPython's own name
typedef struct _object PyObject;

// Owns one reference, or none. Movable, not copyable. An object that holds a reference must go before the
// interpreter is finalised and on the thread that runs it.
class PyRef {
public:
    PyRef() = default;
    // Takes over a reference that the caller owns; null (a failed call) is allowed.
    explicit PyRef(PyObject* owned) noexcept : m_object(owned) {}
    PyRef(PyRef&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    PyRef& operator=(PyRef&& other) noexcept {
        if (this != &other) {
            reset();
            m_object = std::exchange(other.m_object, nullptr);
        }
        return *this;
    }
    PyRef(const PyRef&) = delete;
    PyRef& operator=(const PyRef&) = delete;
    ~PyRef() { reset(); }

    // Borrowed; null when nothing is held.
    PyObject* get() const noexcept { return m_object; }
    explicit operator bool() const noexcept { return m_object != nullptr; }

    // Gives the reference away; the caller owns it now.
    [[nodiscard]] PyObject* release() noexcept { return std::exchange(m_object, nullptr); }
    // Gives the reference back to Python. The holder is empty before the object's own clean-up runs.
    void reset() noexcept;

private:
    PyObject* m_object = nullptr;
};
