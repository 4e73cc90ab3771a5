// Runs a fuzz target over its corpus, the files that are its arguments: each as it is, cut off at
// many places, and with random damage, the same at every run.

#include "FuzzTarget.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

namespace
{

constexpr std::size_t kCuts = 100;
constexpr int kDamagedTexts = 200;
const std::string kPieces[] = {
    "\"",  "<", ">", "/>", "</", "{", "]", "99999999999999999999", "-1", std::string(1, '\0'),
    "\xff"};

void run(const std::string& text)
{
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

void runCutOff(const std::string& text)
{
    const std::size_t step = text.size() / kCuts + 1;
    for (std::size_t length = 0; length < text.size(); length += step)
        run(text.substr(0, length));
}

void runDamaged(const std::string& text, const std::string& other)
{
    std::mt19937 random(1);
    const auto below = [&random](std::size_t limit) { return random() % (limit + 1); };
    for (int i = 0; i < kDamagedTexts; ++i) {
        std::string damaged = text;
        for (std::size_t places = 1 + below(3); places > 0; --places) {
            const std::string part = other.substr(below(other.size()), below(40));
            const std::string& piece = kPieces[below(std::size(kPieces) - 1)];
            damaged.replace(below(damaged.size()), below(9), below(1) == 0 ? part : piece);
        }
        run(damaged);
    }
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> corpus;
    for (int i = 1; i < argc; ++i) {
        std::ifstream file(argv[i], std::ios::binary);
        corpus.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
        require(!corpus.back().empty(), "a corpus file can be read", argv[i]);
    }
    require(!corpus.empty(), "there is a corpus");
    for (std::size_t i = 0; i < corpus.size(); ++i) {
        run(corpus[i]);
        runCutOff(corpus[i]);
        runDamaged(corpus[i], corpus[(i + 1) % corpus.size()]);
    }
    std::printf("%zu corpus files\n", corpus.size());
}
