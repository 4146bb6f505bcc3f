#include "remote_frame.h"

#include "varspec.h"

namespace {

unsigned bigEndian(const unsigned char *p, int bytes)
{
    unsigned v = 0;
    for (int i = 0; i < bytes; ++i)
        v = (v << 8) | p[i];
    return v;
}

}  // namespace

bool parseRemoteFrame(const unsigned char *b, int n, RemoteFrame &f)
{
    if (!b || n < kRemoteHeader + 1)
        return false;
    f.length = b[0];
    f.ownerType = b[1];
    f.rwMode = b[2];
    f.linkNo = b[3];
    f.station = b[4];
    f.areaType = int(bigEndian(b + 5, 2));
    f.address = bigEndian(b + 7, 4);
    f.count = int(bigEndian(b + 11, 2));
    f.spare1 = bigEndian(b + 13, 4);
    f.spare2 = bigEndian(b + 17, 4);
    f.values = QByteArray(reinterpret_cast<const char *>(b) + kRemoteHeader, n - kRemoteHeader - 1);
    f.sum = b[n - 1];
    return true;
}

QString describeRemoteFrame(const RemoteFrame &f)
{
    const QString area = areaNameOf(f.areaType);
    QString text = QString("remote %1, owner %2, link %3, station %4, %5, count %6")
                       .arg(f.rwMode == 1   ? "write"
                            : f.rwMode == 0 ? "read"
                                            : QString("mode %1").arg(f.rwMode))
                       .arg(f.ownerType)
                       .arg(f.linkNo)
                       .arg(f.station)
                       .arg(area.isEmpty() || f.address > 0x7FFFFFFF
                                ? QString("area %1 element %2").arg(f.areaType).arg(f.address)
                                : elementName(f.areaType, int(f.address)))
                       .arg(f.count);
    for (int i = 0; i < f.values.size(); ++i)
        text += (i ? " " : ", values ") +
                QString::number(uchar(f.values.at(i)), 16).toUpper().rightJustified(2, '0');
    return text;
}
