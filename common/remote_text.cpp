#include "common/remote_text.h"

#include "common/varspec.h"

QString describeRemoteRequest(const rvlink::RemoteRequest &f)
{
    const QString area = areaNameOf(f.areaType);
    const QString mode = f.rwMode == rvlink::remote::Write  ? QString("write")
                         : f.rwMode == rvlink::remote::Read ? QString("read")
                                                            : QString("mode %1").arg(f.rwMode);
    const QString element = area.isEmpty() || f.address > 0x7FFFFFFF
                                ? QString("area %1 element %2").arg(f.areaType).arg(f.address)
                                : elementName(f.areaType, int(f.address));
    QString text = QString("remote %1, owner %2, link %3, station %4, %5, count %6")
                       .arg(mode)
                       .arg(f.ownerType)
                       .arg(f.linkNo)
                       .arg(f.station)
                       .arg(element)
                       .arg(f.count);
    for (std::size_t i = 0; i < f.values.size(); ++i)
        text += (i ? " " : ", values ") +
                QString::number(f.values[i], 16).toUpper().rightJustified(2, '0');
    return text;
}
