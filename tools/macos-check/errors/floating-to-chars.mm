// error: 'to_chars' is unavailable: introduced in macOS 13.
#include <charconv>

void write(char* first, char* last, double seconds) {
    std::to_chars(first, last, seconds);
}
