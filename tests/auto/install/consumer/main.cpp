// A host that only sees the installed headers and library.
#include <VelmoraInAppMessaging/customparameterbuilder.h>
#include <VelmoraInAppMessaging/velmora_version.h>
#include <VelmoraInAppMessaging/velmoraerror.h>
#include <VelmoraInAppMessaging/velmorainappmessagingdelegate.h>

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const auto params = velmora::CustomParameterBuilder::buildBlock({
        velmora::putString(QStringLiteral("plan"), QStringLiteral("gold")),
        velmora::putInteger(QStringLiteral("age"), 42),
        velmora::putString(QStringLiteral("plan"), QStringLiteral("silver")),
    });
    const auto error = velmora::VelmoraError::serverError(503);
    velmora::VelmoraInAppMessagingDelegate delegate;
    delegate.messageError(std::nullopt, error);
    if (params.size() != 2 || error.description() != QStringLiteral("serverError: 503"))
        return 1;
    std::printf("consumer ok %s\n", VELMORA_VERSION_STRING);
    return 0;
}
