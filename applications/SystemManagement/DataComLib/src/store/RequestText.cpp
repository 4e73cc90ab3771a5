#include "store/RequestText.h"

#include <json/writer.h>
#include <sstream>

namespace
{

constexpr std::size_t kLargestPipe = 1 << 20;

} // namespace

std::ostream& operator<<(std::ostream& out, const RequestText& text)
{
    if (text.mText.empty()) {
        std::ostringstream written;
        written << text.mRequest;
        text.mText = written.str();
    } else if (text.mPrinted + text.mText.size() > kLargestPipe) {
        return out << "(as above)";
    }
    text.mPrinted += text.mText.size();
    return out << text.mText;
}
