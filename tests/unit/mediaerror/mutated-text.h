// Damaged texts for parsers.
#pragma once

#include <random>
#include <string>
#include <vector>

// The text with up to seven changes anywhere in it: a byte replaced, a part lost or repeated, a piece put in.
inline std::string MutatedText(std::string text, const std::vector<std::string>& pieces,
                               std::mt19937& random) {
    for (unsigned int change = random() % 8; change > 0 && !text.empty(); --change) {
        const std::size_t at = random() % text.size();
        switch (random() % 4) {
            case 0:
                text[at] = static_cast<char>(random());
                break;
            case 1:
                text.erase(at, random() % 40);
                break;
            case 2:
                text.insert(at, pieces[random() % pieces.size()]);
                break;
            default:
                text.insert(at, text.substr(random() % text.size(), random() % 80));
        }
    }
    return text;
}
