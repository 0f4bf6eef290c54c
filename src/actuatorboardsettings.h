#ifndef ACTUATORBOARDSETTINGS_H
#define ACTUATORBOARDSETTINGS_H

#include "inputsoutputs.h"
#include "vyhardware1_export.h"

#include <QMap>

/// Which channel of the actuator board, or of a remote digital output, serves which logical input
/// or output. 255 stands for no channel and for no identifier (InputsOutputs::IONone), both ways.
class VYHARDWARE1_EXPORT ActuatorBoardSettings
{
public:
    static constexpr int s_noChannel = 255;

    /// An identifier that is there already is reported as a failed assertion and then replaced.
    void addIO(InputsOutputs::InputsOutputsUUID uuid, int io);
    void addRemoteIO(InputsOutputs::InputsOutputsUUID uuid, int io);

    /// The channel on the actuator board; 255, with a line in the log, where there is none.
    int io(InputsOutputs::InputsOutputsUUID uuid) const;
    /// The channel of a remote digital output; 255, with a line in the log, where there is none.
    int digitalIO(InputsOutputs::InputsOutputsUUID uuid) const;

    /// The other way; of several identifiers with this channel the smallest, IONone without any.
    InputsOutputs::InputsOutputsUUID uuid(int io) const;
    InputsOutputs::InputsOutputsUUID digitalUUID(int io) const;

private:
    QMap<InputsOutputs::InputsOutputsUUID, int> m_ioMap;
    QMap<InputsOutputs::InputsOutputsUUID, int> m_remoteIOMap;
};

#endif // ACTUATORBOARDSETTINGS_H
