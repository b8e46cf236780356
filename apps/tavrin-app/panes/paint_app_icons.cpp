// Writes the icon at the hicolor theme's usual sizes: DIR/<n>x<n>/apps/com.tavrin.Tavrin.png.
#include <QDir>
#include <QGuiApplication>

#include <cstdio>

#include "app_icon.h"

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: paint_app_icons DIR\n");
        return 2;
    }
    for (int size : {16, 24, 32, 48, 64, 128, 256}) {
        const QString folder = QString("%1/%2x%2/apps").arg(QString::fromLocal8Bit(argv[1])).arg(size);
        if (!QDir().mkpath(folder) || !tavrin::paintAppIcon(size).save(folder + "/com.tavrin.Tavrin.png", "PNG")) {
            std::fprintf(stderr, "paint_app_icons: cannot write %s\n", qPrintable(folder));
            return 1;
        }
    }
    return 0;
}
