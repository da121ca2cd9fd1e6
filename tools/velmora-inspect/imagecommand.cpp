#include "command.h"
#include "images/animatedimagedecoder.h"
#include "images/imageloader.h"

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
    // One byte past the limit is all the loader would ever hold; the decoder refuses it.
    QByteArray data;
    if (const auto status
        = readFileArgument(args, u"image FILE"_s, &data, ImageLoader::byteLimit + 1))
        return *status;

    const std::optional<LoadedImage> image = AnimatedImageDecoder::decode(data);
    if (!image) {
        printErr(u"no image: the library yields nothing for "_s + args.first());
        return Failed;
    }
    QStringList delays;
    double totalDuration = 0;
    int frames = 1;
    qint64 residentBytes = image->firstFrame().sizeInBytes();
    if (const AnimatedImageSource *animation = image->animatedSource()) {
        for (double delay : animation->delays())
            delays.append(jsonNumber(delay));
        totalDuration = animation->totalDuration();
        frames = int(animation->frameCount());
        residentBytes = animation->residentBytes();
    }
    // Written by hand to keep the documented key order; QJsonObject would sort the keys.
    printOut(u"{\"kind\":\""_s + (image->isAnimated() ? u"animated"_s : u"still"_s)
             + u"\",\"width\":"_s + QString::number(image->size().width()) + u",\"height\":"_s
             + QString::number(image->size().height()) + u",\"frames\":"_s + QString::number(frames)
             + u",\"delays\":["_s + delays.join(u',') + u"],"_s + u"\"total_duration\":"_s
             + jsonNumber(totalDuration) + u",\"resident_bytes\":"_s
             + QString::number(residentBytes) + u'}');
    return Success;
}

const bool registered = registerCommand(
    { u"image"_s, u"image FILE       decode an image file as the library does after download"_s,
      runImage });

} // namespace

} // namespace velmora::inspect
