// Plain text replacement for the SOAP bridge, on case-sensitive strings and on
// the case-insensitive ones of its text search alike. Header only, stateless.
#ifndef KVX_SOAP_TEXTREPLACE_H
#define KVX_SOAP_TEXTREPLACE_H

#include <string>
#include <string_view>

namespace KVX {
namespace Internal {

// Keeps a parameter out of template argument deduction, so that literals can
// be passed for the views.
template <class T> struct NotDeduced { typedef T type; };

// Replaces every occurrence of `from` by `to`, going on behind each
// replacement, with the comparison of the string's traits. Built in one pass:
// the text behind a replacement is the text behind its match.
template <class Traits>
void replaceAll(std::basic_string<char, Traits> &text,
                typename NotDeduced<std::basic_string_view<char, Traits>>::type from,
                typename NotDeduced<std::basic_string_view<char, Traits>>::type to) {
    typedef std::basic_string_view<char, Traits> View;
    typename View::size_type position = View(text).find(from);
    if (position == View::npos)
        return;
    std::basic_string<char, Traits> result;
    result.reserve(text.size() + 64);
    typename View::size_type read = 0;
    while (position != View::npos) {
        result.append(text, read, position - read);
        result.append(to.data(), to.size());
        read = position + from.size();
        position = View(text).find(from, read);
    }
    result.append(text, read, std::basic_string<char, Traits>::npos);
    text.swap(result);
}

} // namespace Internal
} // namespace KVX

#endif // KVX_SOAP_TEXTREPLACE_H
