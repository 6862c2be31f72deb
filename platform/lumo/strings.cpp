#include "lumo/strings.h"

#include <cctype>
#include <charconv>
#include <locale>
#include <sstream>

std::string from_int(int value)
{
    return std::to_string(value);
}

std::string from_double(double value, char format, int precision)
{
    // to_chars formats as printf does in the C locale, whatever the user's
    // locale, without building a stream per number; the stream below is kept
    // for what does not fit the buffer (huge fixed-point values).
    char buffer[128];
    const std::chars_format style = format == 'f'   ? std::chars_format::fixed
                                    : format == 'e' ? std::chars_format::scientific
                                                    : std::chars_format::general;
    const std::to_chars_result converted =
        std::to_chars(buffer, buffer + sizeof buffer, value, style, precision);
    if (converted.ec == std::errc())
        return std::string(buffer, converted.ptr);

    // Through a classic-locale stream: the point never turns into a comma.
    std::ostringstream out;
    out.imbue(std::locale::classic());
    switch (format) {
    case 'f':
        out.setf(std::ios::fixed, std::ios::floatfield);
        break;
    case 'e':
        out.setf(std::ios::scientific, std::ios::floatfield);
        break;
    default: // 'g': the shortest of %f and %e, as printf's %g.
        break;
    }
    out.precision(precision);
    out << value;
    return out.str();
}

int compare_ignore_case(const std::string& left, const std::string& right)
{
    const std::size_t common = left.size() < right.size() ? left.size() : right.size();
    for (std::size_t i = 0; i < common; ++i) {
        const int a = std::tolower(static_cast<unsigned char>(left[i]));
        const int b = std::tolower(static_cast<unsigned char>(right[i]));
        if (a != b)
            return a < b ? -1 : 1;
    }
    if (left.size() == right.size())
        return 0;
    return left.size() < right.size() ? -1 : 1;
}
