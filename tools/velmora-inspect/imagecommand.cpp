#include "animatedimagedecoder.h"
#include "command.h"
#include "imageloader.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace velmora::inspect {

namespace {

QString jsonNumber(double value)
{
    // QJsonDocument prints the shortest text that reads back as the same double.
    const QByteArray array = QJsonDocument(QJsonArray { value }).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

int runImage(const QStringList &args)
{
    if (args.size() != 1) {
        printErr(u"usage: velmora-inspect image FILE"_s);
        return Usage;
    }
    QFile file(args.first());
    if (!file.open(QIODevice::ReadOnly)) {
        printErr(u"cannot read "_s + args.first() + u": "_s + file.errorString());
        return Unreadable;
    }
    // One byte past the limit is all the loader would ever hold; the decoder refuses it.
    const QByteArray data = file.read(ImageLoader::byteLimit + 1);
    if (file.error() != QFileDevice::NoError) {
        printErr(u"cannot read "_s + args.first() + u": "_s + file.errorString());
        return Unreadable;
    }

    const std::optional<LoadedImage> image = AnimatedImageDecoder::decode(data);
    if (!image) {
        printErr(u"no image: the library yields nothing for "_s + args.first());
        return Failed;
    }
    QStringList delays;
    double totalDuration = 0;
    int frames = 1;
    if (const AnimatedImageSource *animation = image->animatedSource()) {
        for (double delay : animation->delays())
            delays.append(jsonNumber(delay));
        totalDuration = animation->totalDuration();
        frames = int(animation->frameCount());
    }
    // Written by hand to keep the documented key order; QJsonObject would sort the keys.
    printOut(u"{\"kind\":\""_s + (image->isAnimated() ? u"animated"_s : u"still"_s)
             + u"\",\"width\":"_s + QString::number(image->size().width()) + u",\"height\":"_s
             + QString::number(image->size().height()) + u",\"frames\":"_s + QString::number(frames)
             + u",\"delays\":["_s + delays.join(u',') + u"],"_s + u"\"total_duration\":"_s
             + jsonNumber(totalDuration) + u'}');
    return Success;
}

const bool registered = registerCommand(
    { u"image"_s, u"image FILE       decode an image file as the library does after download"_s,
      runImage });

} // namespace

} // namespace velmora::inspect
