// Writing files so that a reader finds the old content or the new one, never a piece.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>

// False with errno when not everything could be written.
bool WriteAll(int file, const void* content, std::size_t size);

// Throws the CtlError for a failed action on a file, with what to do about it.
[[noreturn]] void FailOnFile(const std::string& action, const std::string& path, int error);

// Puts a file of this content, mode 0644, in the place of a regular file or of none, by way of a file beside
// it that begins with "." and never stays. Throws CtlError.
void ReplaceFile(const std::string& path, const std::string& content);

// A command's result: the file's new content, or written to `out` where the file has no name.
void PutResult(const std::string& text, const std::string& file, std::ostream& out);
