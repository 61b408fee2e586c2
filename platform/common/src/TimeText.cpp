// Time stamps as text: "YYYY-MM-DDThh:mm:ssZ" and "YYYY-MM-DDThh:mm:ss+hh:mm".
// Stateless and thread-safe. The calendar arithmetic is our own (proleptic
// Gregorian, no leap seconds), so results never depend on the process time zone.
#include <kvx/KVXCommon.h>

namespace KVX {

namespace {

constexpr __int64 SecondsPerMinute = 60;
constexpr __int64 SecondsPerDay = 86400;
constexpr int FirstYear = 1970;
constexpr int LastYear = 9999;
// 9999-12-31T23:59:59Z, the last second whose text has a four-digit year.
constexpr __int64 LastTime = 253402300799LL;
// Minutes east of UTC; 23:59 is the widest offset the "+hh:mm" form carries.
constexpr int MaxZone = 23 * 60 + 59;

// The longer of the two forms, "YYYY-MM-DDThh:mm:ss+hh:mm".
constexpr int MaxTextLength = 25;

struct CivilTime {
    int year;
    int month;  // 1..12
    int day;    // 1..31
    int hour;   // 0..23
    int minute; // 0..59
    int second; // 0..59
};

bool isLeapYear(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int daysInMonth(int year, int month) {
    static constexpr int Days[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeapYear(year) ? 29 : Days[month - 1];
}

// Days since 1970-01-01 of a civil date. Eras of 400 years (146097 days)
// repeat exactly; the year is shifted to start in March so that the leap
// day falls at its end.
__int64 daysFromCivil(int year, int month, int day) {
    int const y = month <= 2 ? year - 1 : year;
    int const era = (y >= 0 ? y : y - 399) / 400;
    int const yearOfEra = y - era * 400;                                                 // 0..399
    int const dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1; // 0..365
    int const dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return static_cast<__int64>(era) * 146097 + dayOfEra - 719468;
}

// The inverse of daysFromCivil.
void civilFromDays(__int64 days, CivilTime &civil) {
    days += 719468;
    __int64 const era = (days >= 0 ? days : days - 146096) / 146097;
    int const dayOfEra = static_cast<int>(days - era * 146097); // 0..146096
    int const yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;        // 0..399
    int const dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100); // 0..365
    int const shiftedMonth = (5 * dayOfYear + 2) / 153; // 0..11, March first
    civil.day = dayOfYear - (153 * shiftedMonth + 2) / 5 + 1;
    civil.month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
    civil.year = static_cast<int>(yearOfEra + era * 400) + (civil.month <= 2 ? 1 : 0);
}

bool isInRange(__int64 t) {
    return t >= 0 && t <= LastTime;
}

void toCivil(__int64 t, CivilTime &civil) {
    civilFromDays(t / SecondsPerDay, civil);
    int const secondOfDay = static_cast<int>(t % SecondsPerDay);
    civil.hour = secondOfDay / 3600;
    civil.minute = secondOfDay / 60 % 60;
    civil.second = secondOfDay % 60;
}

void putDigits(std::string &out, int value, int width) {
    char digits[4];
    for (int i = width - 1; i >= 0; --i) {
        digits[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
    out.append(digits, static_cast<std::size_t>(width));
}

// "YYYY-MM-DDThh:mm:ss", without the zone part.
std::string dateTimeText(CivilTime const &civil) {
    std::string text;
    text.reserve(MaxTextLength);
    putDigits(text, civil.year, 4);
    text += '-';
    putDigits(text, civil.month, 2);
    text += '-';
    putDigits(text, civil.day, 2);
    text += 'T';
    putDigits(text, civil.hour, 2);
    text += ':';
    putDigits(text, civil.minute, 2);
    text += ':';
    putDigits(text, civil.second, 2);
    return text;
}

// Reads exactly `width` decimal digits. A NUL is not a digit, so this never
// reads past the end of a shorter text.
bool readDigits(char const *&p, int width, int &value) {
    value = 0;
    for (int i = 0; i < width; ++i) {
        if (p[i] < '0' || p[i] > '9') {
            return false;
        }
        value = value * 10 + (p[i] - '0');
    }
    p += width;
    return true;
}

bool readChar(char const *&p, char expected) {
    if (*p != expected) {
        return false;
    }
    ++p;
    return true;
}

// Parses either form; the result is -1 for anything else. `zone` is set only
// on success.
__int64 parseTime(char const *text, int &zone) {
    if (text == nullptr) {
        return -1;
    }
    char const *p = text;
    CivilTime civil;
    if (!readDigits(p, 4, civil.year) || !readChar(p, '-') || !readDigits(p, 2, civil.month) ||
        !readChar(p, '-') || !readDigits(p, 2, civil.day) || !readChar(p, 'T') ||
        !readDigits(p, 2, civil.hour) || !readChar(p, ':') || !readDigits(p, 2, civil.minute) ||
        !readChar(p, ':') || !readDigits(p, 2, civil.second)) {
        return -1;
    }
    if (civil.year < FirstYear || civil.year > LastYear || civil.month < 1 || civil.month > 12 ||
        civil.day < 1 || civil.day > daysInMonth(civil.year, civil.month) || civil.hour > 23 ||
        civil.minute > 59 || civil.second > 59) {
        return -1;
    }
    int parsedZone = 0;
    if (*p == 'Z') {
        ++p;
    } else if (*p == '+' || *p == '-') {
        bool const west = *p == '-';
        ++p;
        int hours = 0;
        int minutes = 0;
        if (!readDigits(p, 2, hours) || !readChar(p, ':') || !readDigits(p, 2, minutes) ||
            hours > 23 || minutes > 59) {
            return -1;
        }
        parsedZone = hours * 60 + minutes;
        // time2strZone writes a zero offset as "+00:00" only.
        if (west && parsedZone == 0) {
            return -1;
        }
        if (west) {
            parsedZone = -parsedZone;
        }
    } else {
        return -1;
    }
    if (*p != '\0') {
        return -1;
    }
    __int64 const local = daysFromCivil(civil.year, civil.month, civil.day) * SecondsPerDay +
                          civil.hour * 3600 + civil.minute * SecondsPerMinute + civil.second;
    __int64 const t = local - parsedZone * SecondsPerMinute;
    if (!isInRange(t)) {
        return -1;
    }
    zone = parsedZone;
    return t;
}

} // namespace

std::string time2str(__int64 t) {
    if (!isInRange(t)) {
        return std::string();
    }
    CivilTime civil;
    toCivil(t, civil);
    std::string text = dateTimeText(civil);
    text += 'Z';
    return text;
}

// Both the instant and the zone's wall time must lie in 1970..9999: the text
// has a four-digit year, and str2time reads back every text written here.
std::string time2strZone(__int64 t, int zone) {
    if (!isInRange(t) || zone < -MaxZone || zone > MaxZone) {
        return std::string();
    }
    __int64 const local = t + zone * SecondsPerMinute;
    if (!isInRange(local)) {
        return std::string();
    }
    CivilTime civil;
    toCivil(local, civil);
    std::string text = dateTimeText(civil);
    int const offset = zone < 0 ? -zone : zone;
    text += zone < 0 ? '-' : '+';
    putDigits(text, offset / 60, 2);
    text += ':';
    putDigits(text, offset % 60, 2);
    return text;
}

__int64 str2time(char const *text) {
    int zone = 0;
    return parseTime(text, zone);
}

__int64 str2time(char const *text, int &zone) {
    return parseTime(text, zone);
}

} // namespace KVX
