#ifndef SPEAKERCONTROLLER_H
#define SPEAKERCONTROLLER_H

#include "vyhardware1_export.h"

#include <QObject>

/// The speaker's volume. No platform of this library can set it: both operations log that and do
/// nothing.
class VYHARDWARE1_EXPORT SpeakerController : public QObject
{
    Q_OBJECT

public:
    static SpeakerController *instance(); ///< made at the first call

    void applyVolume(int volume); ///< 0 to 100
    int readVolume() const;       ///< 0

private:
    SpeakerController();
};

#endif // SPEAKERCONTROLLER_H
