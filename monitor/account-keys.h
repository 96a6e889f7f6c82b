// The fixed halves of the account files' keys, and their initialisation vectors.
//
// Service and registration tool must hold the same values. A site whose tool holds others builds with
// -DBAYWARD_ACCOUNT_KEYS_HEADER=FILE, where FILE defines the same four constants. They keep nothing secret by
// themselves: the other half of each key is the machine's UUID, and the files are readable by root alone.
#pragma once

#include <array>

// Second half of the name's key; the system UUID is the first.
inline constexpr std::array<unsigned char, 16> kNameKeyHalf = {
    0x78, 0x04, 0x40, 0x4A, 0x02, 0x85, 0x2D, 0x4E, 0x84, 0xC8, 0xA6, 0x33, 0x71, 0x0B, 0xCC, 0xAA};
// First half of the password's key; the system UUID is the second.
inline constexpr std::array<unsigned char, 16> kPasswordKeyHalf = {
    0x15, 0x1C, 0x64, 0xFF, 0xC5, 0x5B, 0xA4, 0x8F, 0x29, 0xE9, 0x6B, 0x4A, 0x88, 0xB9, 0x39, 0x0F};
// Initialisation vectors.
inline constexpr std::array<unsigned char, 16> kNameIv = {0x9B, 0x21, 0x7E, 0x2F, 0x63, 0x80, 0x6D, 0x02,
                                                          0x8F, 0xE3, 0x23, 0x18, 0xD8, 0x20, 0xEE, 0xBF};
inline constexpr std::array<unsigned char, 16> kPasswordIv = {0x4A, 0xAD, 0xA4, 0x32, 0x2C, 0x28, 0x89, 0xC4,
                                                              0xFE, 0xD5, 0x6F, 0xEC, 0x3F, 0x34, 0x87, 0x67};
