#include <QApplication>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// A test build configured to keep assertions must really have them: otherwise every Q_ASSERT the
// tests lean on would be compiled out without a word.
#if PULSEBAR_ASSERTIONS_WANTED && (defined(QT_NO_DEBUG) || defined(NDEBUG))
#error "assertions were asked for but QT_NO_DEBUG or NDEBUG is still defined"
#endif

// Every test binary runs with an application object on the offscreen platform, so widget and
// painting code can be tested without a display.
int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"));
    // No test reaches the internet: the public-address, weather and location services point at a
    // closed loopback port unless a test serves them itself.
    for (const char* service : {"PULSEBAR_IPIFY_URL", "PULSEBAR_OPEN_METEO_URL", "PULSEBAR_GEOCODING_URL", "PULSEBAR_IPAPI_URL"})
        if (qEnvironmentVariableIsEmpty(service))
            qputenv(service, "http://127.0.0.1:9/");
    // A hub started by a test opens its history store under XDG_DATA_HOME: never the user's own.
    QTemporaryDir dataHome;
    qputenv("XDG_DATA_HOME", dataHome.path().toLocal8Bit());
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
