// Tests of the time texts: both forms, their ranges and the strict reader.
#include <kvx/KVXCommon.h>

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr __int64 LastTime = 253402300799LL; // 9999-12-31T23:59:59Z

TEST(TimeText, EpochAndKnownInstants) {
    EXPECT_EQ(KVX::time2str(0), "1970-01-01T00:00:00Z");
    EXPECT_EQ(KVX::time2str(1234567890), "2009-02-13T23:31:30Z");
    EXPECT_EQ(KVX::time2str(1700000000), "2023-11-14T22:13:20Z");
    EXPECT_EQ(KVX::time2str(LastTime), "9999-12-31T23:59:59Z");
}

TEST(TimeText, LeapDays) {
    EXPECT_EQ(KVX::time2str(68169600), "1972-02-29T00:00:00Z");
    EXPECT_EQ(KVX::time2str(951827696), "2000-02-29T12:34:56Z");
    EXPECT_EQ(KVX::time2str(1709164800), "2024-02-29T00:00:00Z");
    // 2100 is not a leap year: February 28 is followed by March 1.
    EXPECT_EQ(KVX::time2str(4107542400LL), "2100-03-01T00:00:00Z");
    EXPECT_EQ(KVX::time2str(4107542400LL - 1), "2100-02-28T23:59:59Z");
}

TEST(TimeText, OutOfRangeGivesEmptyText) {
    EXPECT_EQ(KVX::time2str(-1), "");
    EXPECT_EQ(KVX::time2str(LastTime + 1), "");
    EXPECT_EQ(KVX::time2str(-9223372036854775807LL - 1), "");
    EXPECT_EQ(KVX::time2str(9223372036854775807LL), "");
}

TEST(TimeText, ZoneForms) {
    EXPECT_EQ(KVX::time2strZone(0, 0), "1970-01-01T00:00:00+00:00");
    EXPECT_EQ(KVX::time2strZone(0, 60), "1970-01-01T01:00:00+01:00");
    EXPECT_EQ(KVX::time2strZone(1700000000, 330), "2023-11-15T03:43:20+05:30");
    EXPECT_EQ(KVX::time2strZone(1700000000, -570), "2023-11-14T12:43:20-09:30");
    EXPECT_EQ(KVX::time2strZone(1234567890, 1439), "2009-02-14T23:30:30+23:59");
    EXPECT_EQ(KVX::time2strZone(1234567890, -1439), "2009-02-12T23:32:30-23:59");
}

TEST(TimeText, ZoneOutOfRangeGivesEmptyText) {
    EXPECT_EQ(KVX::time2strZone(1234567890, 1440), "");
    EXPECT_EQ(KVX::time2strZone(1234567890, -1440), "");
    EXPECT_EQ(KVX::time2strZone(-1, 0), "");
    EXPECT_EQ(KVX::time2strZone(LastTime + 1, 0), "");
    // The wall time of the zone must lie in 1970..9999 as well.
    EXPECT_EQ(KVX::time2strZone(0, -1), "");
    EXPECT_EQ(KVX::time2strZone(LastTime, 1), "");
    EXPECT_EQ(KVX::time2strZone(LastTime, -1), "9999-12-31T23:58:59-00:01");
}

TEST(TimeText, ReadsUtcForm) {
    int zone = 77;
    EXPECT_EQ(KVX::str2time("1970-01-01T00:00:00Z"), 0);
    EXPECT_EQ(KVX::str2time("2009-02-13T23:31:30Z", zone), 1234567890);
    EXPECT_EQ(zone, 0);
    EXPECT_EQ(KVX::str2time("9999-12-31T23:59:59Z"), LastTime);
    EXPECT_EQ(KVX::str2time("2000-02-29T12:34:56Z"), 951827696);
}

TEST(TimeText, ReadsZoneForm) {
    int zone = 0;
    EXPECT_EQ(KVX::str2time("2023-11-15T03:43:20+05:30", zone), 1700000000);
    EXPECT_EQ(zone, 330);
    EXPECT_EQ(KVX::str2time("2023-11-14T12:43:20-09:30", zone), 1700000000);
    EXPECT_EQ(zone, -570);
    EXPECT_EQ(KVX::str2time("1970-01-01T01:00:00+01:00", zone), 0);
    EXPECT_EQ(zone, 60);
    EXPECT_EQ(KVX::str2time("1970-01-01T00:00:00+00:00", zone), 0);
    EXPECT_EQ(zone, 0);
    // The one-argument form gives the same instant.
    EXPECT_EQ(KVX::str2time("2023-11-15T03:43:20+05:30"), 1700000000);
}

TEST(TimeText, RoundTripWithoutZone) {
    // Steps through the whole range, with an odd stride to vary every field.
    for (__int64 t = 0; t <= LastTime; t += 86399LL * 97 + 3601) {
        std::string text = KVX::time2str(t);
        ASSERT_EQ(text.size(), 20u) << t;
        int zone = 5;
        ASSERT_EQ(KVX::str2time(text.c_str(), zone), t) << text;
        ASSERT_EQ(zone, 0) << text;
    }
    EXPECT_EQ(KVX::str2time(KVX::time2str(LastTime).c_str()), LastTime);
}

TEST(TimeText, RoundTripWithZone) {
    int const zones[] = {-1439, -720, -570, -61, -1, 0, 1, 60, 330, 345, 840, 1439};
    for (int zone : zones) {
        for (__int64 t = 86400; t <= LastTime - 86400; t += 86399LL * 977 + 61) {
            std::string text = KVX::time2strZone(t, zone);
            ASSERT_EQ(text.size(), 25u) << t << " " << zone;
            int readZone = 9999;
            ASSERT_EQ(KVX::str2time(text.c_str(), readZone), t) << text;
            ASSERT_EQ(readZone, zone) << text;
        }
    }
}

TEST(TimeText, RejectsOutOfRangeFields) {
    EXPECT_EQ(KVX::str2time("1969-12-31T23:59:59Z"), -1);
    EXPECT_EQ(KVX::str2time("1970-00-01T00:00:00Z"), -1);
    EXPECT_EQ(KVX::str2time("1970-13-01T00:00:00Z"), -1);
    EXPECT_EQ(KVX::str2time("1970-01-00T00:00:00Z"), -1);
    EXPECT_EQ(KVX::str2time("1970-01-32T00:00:00Z"), -1);
    EXPECT_EQ(KVX::str2time("2021-02-29T00:00:00Z"), -1);
    EXPECT_EQ(KVX::str2time("2100-02-29T00:00:00Z"), -1);
    EXPECT_EQ(KVX::str2time("2020-04-31T00:00:00Z"), -1);
    EXPECT_EQ(KVX::str2time("2020-01-01T24:00:00Z"), -1);
    EXPECT_EQ(KVX::str2time("2020-01-01T23:60:00Z"), -1);
    EXPECT_EQ(KVX::str2time("2020-01-01T23:59:60Z"), -1);
    EXPECT_EQ(KVX::str2time("2020-01-01T00:00:00+24:00"), -1);
    EXPECT_EQ(KVX::str2time("2020-01-01T00:00:00+01:60"), -1);
    // The instant before 1970 although the wall time is not.
    EXPECT_EQ(KVX::str2time("1970-01-01T00:30:00+01:00"), -1);
}

TEST(TimeText, RejectsOtherTexts) {
    char const *const bad[] = {
        "",
        "abc",
        "2020-01-01T00:00:00",        // no zone
        "2020-01-01T00:00:00Z ",      // trailing space
        "2020-01-01T00:00:00Zx",      // trailing garbage
        "2020-01-01T00:00:00+01:00Z", // two zones
        "2020-01-01t00:00:00Z",       // lower-case separator
        "2020-01-01T00:00:00z",       // lower-case zone
        "2020-01-01 00:00:00Z",       // space separator
        "2020-1-01T00:00:00Z",        // one-digit month
        "20200-01-01T00:00:00Z",      // five-digit year
        "10000-01-01T00:00:00Z",      // year past 9999
        " 2020-01-01T00:00:00Z",      // leading space
        "+020-01-01T00:00:00Z",       // sign in a field
        "2020-01-0aT00:00:00Z",       // letter in a field
        "2020-01-01T00:00:00+0100",   // zone without colon
        "2020-01-01T00:00:00+1:00",   // one-digit zone hour
        "2020-01-01T00:00:00-00:00",  // negative zero zone
        "2020-01-01T00:00:00.5Z",     // fraction
    };
    for (char const *text : bad) {
        int zone = 42;
        EXPECT_EQ(KVX::str2time(text), -1) << '"' << text << '"';
        EXPECT_EQ(KVX::str2time(text, zone), -1) << '"' << text << '"';
        EXPECT_EQ(zone, 42) << "zone changed by a failed read of \"" << text << '"';
    }
    EXPECT_EQ(KVX::str2time(nullptr), -1);
}

} // namespace
