#include "apps/camclock/views/Calibration.h"
#include "apps/camclock/views/BigDigits.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace camclock::app {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

/// 2026-11-21T22:14:07.250Z.
constexpr TimePoint kNow_host{seconds(1'795'299'247) + milliseconds(250)};

TEST(ParseReading, TakesSecondsMinutesAndHours) {
    const auto second = ParseReading("07.25");
    ASSERT_TRUE(second);
    EXPECT_EQ(second->since, milliseconds(7'250));
    EXPECT_EQ(second->period, minutes(1));
    const auto minute = ParseReading("14:07.003");
    ASSERT_TRUE(minute);
    EXPECT_EQ(minute->since, milliseconds(847'003));
    EXPECT_EQ(minute->period, hours(1));
    const auto hour = ParseReading("22:14:07.9");
    ASSERT_TRUE(hour);
    EXPECT_EQ(hour->since, milliseconds(80'047'900));
    EXPECT_EQ(hour->period, hours(24));
}

TEST(ParseReading, RefusesAllElse) {
    for (const char* text : {"", "q", "7", "14:07", "07.", ".250", "60.000", "60:00.000", "24:00:00.000",
                             "07.2500", "7,250", "-7.250", "1:2:3:4.5", "107.250", "07.25 ", ":07.250"})
        EXPECT_FALSE(ParseReading(text)) << text;
}

TEST(NearestInstant, LiesBeforeOrBehind) {
    EXPECT_EQ(NearestInstant(*ParseReading("07.200"), kNow_host, seconds(0)), kNow_host - milliseconds(50));
    EXPECT_EQ(NearestInstant(*ParseReading("14:07.300"), kNow_host, seconds(0)),
              kNow_host + milliseconds(50));
    EXPECT_EQ(NearestInstant(*ParseReading("22:14:06.250"), kNow_host, seconds(0)), kNow_host - seconds(1));
}

TEST(NearestInstant, GoesOverTheFullMinuteHourAndDay) {
    const TimePoint midnight_host = kNow_host + milliseconds(6'352'750);
    EXPECT_EQ(NearestInstant(*ParseReading("59.990"), midnight_host, seconds(0)),
              midnight_host - milliseconds(10));
    EXPECT_EQ(NearestInstant(*ParseReading("59:59.990"), midnight_host, seconds(0)),
              midnight_host - milliseconds(10));
    EXPECT_EQ(NearestInstant(*ParseReading("23:59:59.990"), midnight_host, seconds(0)),
              midnight_host - milliseconds(10));
    EXPECT_EQ(NearestInstant(*ParseReading("0:00:00.010"), midnight_host - milliseconds(5), seconds(0)),
              midnight_host + milliseconds(10));
}

TEST(NearestInstant, IsOfTheClocksOwnZone) {
    EXPECT_EQ(NearestInstant(*ParseReading("03:44:07.200"), kNow_host, hours(5) + minutes(30)),
              kNow_host - milliseconds(50));
    EXPECT_EQ(NearestInstant(*ParseReading("44:07.200"), kNow_host, hours(5) + minutes(30)),
              kNow_host - milliseconds(50));
    EXPECT_EQ(NearestInstant(*ParseReading("18:44:07.200"), kNow_host, -(hours(3) + minutes(30))),
              kNow_host - milliseconds(50));
}

TEST(ParseReadings, TakesLinesWithNumberAndTime) {
    int wrong = 0;
    const auto readings = ParseReadings("# by two people\n\n07 14:07.250\n 3\t8.1 \r\n", wrong);
    ASSERT_TRUE(readings);
    ASSERT_EQ(readings->size(), 2U);
    EXPECT_EQ(readings->at(7).since, milliseconds(847'250));
    EXPECT_EQ(readings->at(3).since, milliseconds(8'100));
}

TEST(ParseReadings, NamesTheLineThatIsNone) {
    for (const char* line : {"07", "07 q", "x 14:07.250", "07 14:07.250 14:07.251"}) {
        int wrong = 0;
        EXPECT_FALSE(ParseReadings(std::string("01 14:07.250\n") + line + "\n", wrong)) << line;
        EXPECT_EQ(wrong, 2);
    }
}

std::vector<CalibrationPicture> Pictures(const std::vector<int>& latencies_ms) {
    std::vector<CalibrationPicture> pictures;
    for (const int latency_ms : latencies_ms) {
        const int number = static_cast<int>(pictures.size()) + 1;
        pictures.push_back({number, 0, kNow_host + seconds(number), kNow_host + seconds(number),
                            kNow_host + seconds(number) - milliseconds(latency_ms)});
    }
    return pictures;
}

TEST(Calibrate, TakesTheMeanLessHalfARefresh) {
    const auto result = Calibrate(Pictures({48, 50, 52, 54}), 100.0, 3.25);
    ASSERT_TRUE(result);
    EXPECT_DOUBLE_EQ(result->least_ms, 46.0);
    EXPECT_DOUBLE_EQ(result->mean_ms, 49.25);
    EXPECT_NEAR(result->error_ms, 2.582, 0.001);  // variance (9 + 1 + 1 + 9) / 3, of 4: 2 sqrt(20 / 3 / 4)
    EXPECT_EQ(result->used, 4U);
    EXPECT_EQ(result->read, 4U);
    EXPECT_TRUE(result->outliers.empty());
}

TEST(Calibrate, LeavesOutMisreadDigitsAndSaysSo) {
    const auto result = Calibrate(Pictures({50, 1050, 50, -51, 50, 149, 50}), 1e6, 0.0);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->outliers, (std::vector<int>{2, 4}));  // 149 is 99 away
    EXPECT_EQ(result->used, 5U);
    EXPECT_EQ(result->read, 7U);
    EXPECT_NEAR(result->least_ms, 69.8, 0.001);
}

TEST(Calibrate, PassesOverPicturesThatWereNotRead) {
    std::vector<CalibrationPicture> pictures = Pictures({10, 20, 30, 40});
    pictures[3].shown_host.reset();
    const auto result = Calibrate(pictures, 50.0, 0.0);
    ASSERT_TRUE(result);
    EXPECT_DOUBLE_EQ(result->least_ms, 10.0);
    EXPECT_EQ(result->read, 3U);
}

TEST(Calibrate, NeedsThreeReadings) {
    EXPECT_FALSE(Calibrate({}, 60.0, 0.0));
    EXPECT_FALSE(Calibrate(Pictures({50, 51}), 60.0, 0.0));
    EXPECT_FALSE(Calibrate(Pictures({50, 51, 900}), 60.0, 0.0));
}

TEST(CalibrationText, IsReadyToPaste) {
    Calibration calibration;
    calibration.least_ms = 41.26;
    calibration.mean_ms = 43.9;
    calibration.error_ms = 0.88;
    calibration.used = 23;
    calibration.read = 25;
    calibration.outliers = {4, 17};
    EXPECT_EQ(CalibrationText(calibration),
              "left out, more than 100 ms from the median: calibrate-04.png\n"
              "left out, more than 100 ms from the median: calibrate-17.png\n"
              "--least-latency 41.3 --mean-latency 44  (error 0.9 ms, 23 of 25 frames)\n");
}

TEST(CalibrationCsv, HoldsALineAPicture) {
    EXPECT_EQ(CalibrationCsv({{7, 4'294'967'295U, kNow_host, kNow_host + milliseconds(2), std::nullopt}}),
              "picture,rtp_ts,precise_host,arrived_host\n"
              "calibrate-07.png,4294967295,2026-11-21T22:14:07.250000Z,2026-11-21T22:14:07.252000Z\n");
}

TEST(BigDigits, AreFiveLinesHigh) {
    EXPECT_EQ(BigDigits("7:1."), (std::vector<std::string>{
                                     "██████          ██    ",
                                     "    ██  ██      ██    ",
                                     "    ██          ██    ",
                                     "    ██  ██      ██    ",
                                     "    ██          ██  ██",
                                 }));
}

}  // namespace
}  // namespace camclock::app
