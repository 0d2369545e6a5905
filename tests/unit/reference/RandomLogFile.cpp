#include "RandomLogFile.h"

#include <iterator>

namespace Reference {

namespace {

std::string RandomTime(Random& random) {
    switch (random.Below(30)) {
        case 0:
            return random.Pick({"0", "", "-1", "-1000000", "-1999999", "99999999999999999999", "x",
                                " 1750000000000000", "1", "999999"});
        default:
            return std::to_string(RandomSecond(random) * 1000000LL + random.Below(1000000));
    }
}

std::string SoundLine(Random& random) {
    std::string line = "2025/06/15, 15:06:40, ";
    line += random.OneIn(3) ? "d" : "f";
    line += ", 0, 1, 00 0C 29, IP";
    if (random.OneIn(20)) line += std::string(random.Below(19000), 'A');
    if (random.OneIn(20)) line += std::string(9300 + random.Below(80) - line.size() % 60, ',');
    line += ", " + std::to_string(random.Below(1000));
    return line + ", 1, 1750000000000000, " + RandomTime(random);
}

// Short lines, odd commas and odd kinds.
std::string OddLine(Random& random) {
    static const char* const kPieces[] = {",", ", ", "f",   "d", "1750000000000000",
                                          "x", " ",  "2025"};
    std::string line;
    for (uint32_t pieces = random.Below(12); pieces > 0; --pieces)
        line += kPieces[random.Below(std::size(kPieces))];
    return line;
}

}  // namespace

long RandomSecond(Random& random) {
    if (random.OneIn(2)) return kLogTime + static_cast<long>(random.Between(-4000, 4000));
    return kLogTime + random.Pick<long>({0, 1, -1, 60, -60, 61, -61, 1000, -1000, 3600, -3600});
}

std::string RandomLine(Random& random) {
    std::string line = random.OneIn(8) ? OddLine(random) : SoundLine(random);
    if (!line.empty() && random.OneIn(12)) {
        static const char kBad[] = {'\r', '\0', '\t', '\x7F', '\xC3', '\x1F', '\xFF'};
        const size_t place = random.OneIn(3) ? line.size() - 1 - random.Below(2) % line.size()
                                             : random.Below(static_cast<uint32_t>(line.size()));
        line[place] = kBad[random.Below(sizeof kBad)];
    }
    if (random.OneIn(25)) line += '\r';
    return line;
}

std::string RandomLogFile(Random& random) {
    std::string file;
    for (uint32_t lines = random.Below(random.OneIn(6) ? 120 : 12); lines > 0; --lines)
        file += RandomLine(random) + "\n";
    if (!file.empty() && random.OneIn(3)) file.pop_back();
    return file;
}

}  // namespace Reference
