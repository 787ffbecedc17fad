// Formatting with the library's format language, from C++.
//
//     #include <keel/format.h>        // link keel::keel (-lkeel)
//
//     keel::StringC file("report.txt", "utf8");
//     std::vector<int> items(3);
//     keel::StringC line = keel::format("%zu items in %S", items.size(), file);
//     keel::StringC when = keel::format("%.23t %s", std::chrono::system_clock::now(), "start");
//     keel::formatTo([&](char32_t c) { out.push_back(c); }, "%-8S|", file);
//
// keel::format and keel::formatTo build the argument list from the C++ types
// of their arguments, one entry per argument in order, and render it with
// the same engine as StringC::format, so the output is the engine's. The
// letters of the format only say how an entry is shown: a letter that does
// not fit its argument shows what the engine shows for that entry (an empty
// text for %s of a number, 0 for %d of a string, ...) and never reads memory
// as the wrong type. Length letters (h, l, ll, z, j, q, L) are not needed
// and are skipped.
//
//   argument type                               entry        shown by
//   bool                                        "Bool"       %d %u %x ...
//   signed integers of 1 or 2 bytes (char too)  "Int16"      %d %c ...
//   int32_t, and long where it has 4 bytes      "Int32"
//   int64_t, long long, long where 8 bytes      "Int64"
//   unsigned of 1 or 2 bytes                    "Unsigned16" %u %x %o %b %c
//   uint32_t, unsigned long where 4 bytes       "Unsigned32"
//   uint64_t, size_t where 8 bytes ...          "Unsigned64"
//   enumerations                                as their underlying type
//   float, double, long double                  "Real"       %d %u ... (truncated)
//   char32_t, char16_t, wchar_t                 "UCS4"       %C %S (the character), %d
//   const char*, char arrays                    "CharStar"   %s ("system-8"), %S (UTF-8), %p
//   std::string, std::string_view               "String"     %s %S, decoded as UTF-8
//   StringC, const StringC* (null: empty)       "String"     %s %S
//   ArgTimeValT, const ArgTimeValT*             "TimeVal"    %t
//   struct timeval, struct timespec,
//   std::chrono::system_clock::time_point       "DateTime"   %t (no 2038 limit)
//   ArgGuidT                                    "Guid"       %S
//   ArgListC                                    "ArgList"
//   other object pointers, nullptr              "ObjRef"     %p
//
// Any other type is a compile-time error. A format given as std::string_view
// or const char* is read as UTF-8; a StringC format is used as it is. The
// argument list alone is keel::makeArgList(args...), for code that keeps it
// (an error report, a translated text rendered later).
//
// The C-variadic forms below (formatString, formatStringV) stay for code that
// uses them. They read the arguments by the letters, as the table in
// <keel/arglist.h> says; there, a letter that does not fit the argument
// passed is undefined behaviour, exactly as with printf.
#ifndef KEEL_FORMAT_H
#define KEEL_FORMAT_H

#include <stdarg.h>
#include <stdint.h>
#include <sys/time.h>
#include <time.h>

#include <chrono>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include <keel/arglist.h>
#include <keel/string.h>

namespace keel {

namespace formatargs {

template <typename T>
struct isSystemTimePointM : std::false_type {};
template <typename Duration>
struct isSystemTimePointM<std::chrono::time_point<std::chrono::system_clock, Duration>> : std::true_type {};

template <typename T>
struct unsupportedM : std::false_type {};

// The "DateTime" value of a time since 1970: ticks of 10 nanoseconds counted
// from 0000-12-31, on the scale that the renderer converts back.
const int64_t kDateTimeEpoch1970 = 6213568320000000000LL;
inline int64_t dateTimeTicks(int64_t seconds, int64_t tensOfNanoseconds) {
    return kDateTimeEpoch1970 + seconds * 100000000LL + tensOfNanoseconds;
}

// Appends the entry for one argument, chosen by its type.
template <typename T>
void addArgument(ArgListC& list, const T& value) {
    typedef typename std::remove_cv<T>::type U;
    if constexpr (std::is_same<U, bool>::value) {
        list.add(value);
    } else if constexpr (std::is_same<U, char32_t>::value || std::is_same<U, char16_t>::value ||
                         std::is_same<U, wchar_t>::value) {
        list.addUCS4(static_cast<uint32_t>(value));
    } else if constexpr (std::is_enum<U>::value) {
        addArgument(list, static_cast<typename std::underlying_type<U>::type>(value));
    } else if constexpr (std::is_integral<U>::value) {
        if constexpr (std::is_signed<U>::value) {
            if constexpr (sizeof(U) <= 2) {
                list.add(static_cast<int16_t>(value));
            } else if constexpr (sizeof(U) <= 4) {
                list.add(static_cast<int32_t>(value));
            } else {
                static_assert(sizeof(U) <= 8, "keel::format: integers above 64 bits have no entry");
                list.add(static_cast<int64_t>(value));
            }
        } else {
            if constexpr (sizeof(U) <= 2) {
                list.add(static_cast<uint16_t>(value));
            } else if constexpr (sizeof(U) <= 4) {
                list.add(static_cast<uint32_t>(value));
            } else {
                static_assert(sizeof(U) <= 8, "keel::format: integers above 64 bits have no entry");
                list.add(static_cast<uint64_t>(value));
            }
        }
    } else if constexpr (std::is_floating_point<U>::value) {
        list.add(static_cast<double>(value));
    } else if constexpr (std::is_same<U, StringC>::value) {
        list.add(value);
    } else if constexpr (std::is_same<U, const StringC*>::value || std::is_same<U, StringC*>::value) {
        if (value) {
            list.add(*value);
        } else {
            list.add(StringC());
        }
    } else if constexpr (std::is_same<U, std::nullptr_t>::value) {
        list.add(static_cast<const void*>(nullptr));
    } else if constexpr (std::is_same<U, const char*>::value || std::is_same<U, char*>::value) {
        list.add(static_cast<const char*>(value));
    } else if constexpr (std::is_array<U>::value) {
        static_assert(std::is_same<typename std::remove_cv<typename std::remove_extent<U>::type>::type, char>::value,
                      "keel::format: of arrays only char arrays (text) have an entry");
        list.add(static_cast<const char*>(value));
    } else if constexpr (std::is_convertible<const U&, std::string_view>::value) {
        list.add(StringC(std::string_view(value)));
    } else if constexpr (std::is_same<U, ArgTimeValT>::value) {
        list.add(value);
    } else if constexpr (std::is_same<U, const ArgTimeValT*>::value || std::is_same<U, ArgTimeValT*>::value) {
        // A null pointer is the time 0, as the variadic %t takes it.
        ArgTimeValT copy = {0, 0};
        if (value) copy = *value;
        list.add(copy);
    } else if constexpr (std::is_same<U, struct timeval>::value) {
        list.addDateTime(dateTimeTicks(value.tv_sec, static_cast<int64_t>(value.tv_usec) * 100));
    } else if constexpr (std::is_same<U, struct timespec>::value) {
        list.addDateTime(dateTimeTicks(value.tv_sec, static_cast<int64_t>(value.tv_nsec) / 10));
    } else if constexpr (isSystemTimePointM<U>::value) {
        typedef std::chrono::duration<int64_t, std::ratio<1, 100000000>> TicksT;
        list.addDateTime(kDateTimeEpoch1970 + std::chrono::duration_cast<TicksT>(value.time_since_epoch()).count());
    } else if constexpr (std::is_same<U, ArgGuidT>::value || std::is_same<U, ArgListC>::value) {
        list.add(value);
    } else if constexpr (std::is_pointer<U>::value && !std::is_function<typename std::remove_pointer<U>::type>::value) {
        list.add(static_cast<const void*>(value));
    } else {
        static_assert(unsupportedM<U>::value, "keel::format: no argument-list entry for this type");
    }
}

// Calls a C++ sink from the engine's CharSinkFn.
template <typename Sink>
void callSink(void* context, uint32_t character) {
    (*static_cast<Sink*>(context))(static_cast<char32_t>(character));
}

}  // namespace formatargs

// The argument list of keel::format, for code that keeps or passes it on.
template <typename... Args>
ArgListC makeArgList(const Args&... args) {
    ArgListC list;
    (formatargs::addArgument(list, args), ...);
    return list;
}

// Renders `format` with the arguments into a new string.
template <typename... Args>
StringC format(const StringC& format, const Args&... args) {
    return StringC::format(format, makeArgList(args...));
}
template <typename... Args>
StringC format(std::string_view format, const Args&... args) {
    return StringC::format(StringC(format), makeArgList(args...));
}

// Renders into the engine's sink: `sink(context, character)` per character.
template <typename... Args>
void formatTo(CharSinkFn sink, void* context, const StringC& format, const Args&... args) {
    StringC::formatTo(sink, context, format, makeArgList(args...));
}
template <typename... Args>
void formatTo(CharSinkFn sink, void* context, std::string_view format, const Args&... args) {
    StringC::formatTo(sink, context, StringC(format), makeArgList(args...));
}

// Renders into any callable that takes a char32_t, one character a call.
// The sink should not throw: the engine's code lies between it and the
// caller.
template <typename Sink, typename... Args,
          typename std::enable_if<std::is_invocable<Sink&, char32_t>::value, int>::type = 0>
void formatTo(Sink&& sink, const StringC& format, const Args&... args) {
    typedef typename std::remove_reference<Sink>::type SinkT;
    StringC::formatTo(&formatargs::callSink<SinkT>, const_cast<void*>(static_cast<const void*>(&sink)), format,
                      makeArgList(args...));
}
template <typename Sink, typename... Args,
          typename std::enable_if<std::is_invocable<Sink&, char32_t>::value, int>::type = 0>
void formatTo(Sink&& sink, std::string_view format, const Args&... args) {
    formatTo(sink, StringC(format), args...);
}

namespace formatargs {

// What may pass through the C-variadic forms: numbers, enumerations and
// pointers (arrays decay to pointers). A class object, a StringC above all,
// cannot: %S takes a pointer to one.
template <typename... Args>
struct variadicSafeM : std::true_type {};
template <typename First, typename... Rest>
struct variadicSafeM<First, Rest...>
    : std::integral_constant<bool, (std::is_arithmetic<typename std::decay<First>::type>::value ||
                                    std::is_enum<typename std::decay<First>::type>::value ||
                                    std::is_pointer<typename std::decay<First>::type>::value ||
                                    std::is_null_pointer<typename std::decay<First>::type>::value) &&
                                       variadicSafeM<Rest...>::value> {};

}  // namespace formatargs

// A class object passed to formatString, such as a StringC for %S (which
// takes const StringC*), would be read as the wrong type. These overloads
// catch that at compile time: they are chosen over the C-variadic ones and
// deleted. keel::format takes a StringC by value, and any other type it knows.
template <typename... Args,
          typename std::enable_if<!formatargs::variadicSafeM<Args...>::value, int>::type = 0>
StringC formatString(const char* format, const Args&... args) = delete;
template <typename... Args,
          typename std::enable_if<!formatargs::variadicSafeM<Args...>::value, int>::type = 0>
StringC formatString(const StringC* format, const Args&... args) = delete;

// Formats with the arguments of a variadic call; the format is 8-bit text in
// "system-8".
inline StringC formatStringV(const char* format, va_list arguments) {
    StringC pattern(format, "system-8");
    return StringC::format(pattern, ArgListC::fromFormat(pattern, arguments));
}

inline StringC formatStringV(const StringC& format, va_list arguments) {
    return StringC::format(format, ArgListC::fromFormat(format, arguments));
}

inline StringC formatString(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    StringC result = formatStringV(format, arguments);
    va_end(arguments);
    return result;
}

// The same with the format as a string; a null pointer is the empty format.
inline StringC formatString(const StringC* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    StringC result = format ? formatStringV(*format, arguments) : StringC();
    va_end(arguments);
    return result;
}

}  // namespace keel

#endif
