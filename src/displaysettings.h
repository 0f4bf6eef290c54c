#ifndef DISPLAYSETTINGS_H
#define DISPLAYSETTINGS_H

#include "vyhardware1_export.h"

#include <QMetaType>
#include <QObject>

/// What a machine's display is like and whether its brightness and contrast can be set.
class VYHARDWARE1_EXPORT DisplaySettings
{
    Q_GADGET
    Q_PROPERTY(int width READ width)   ///< pixels
    Q_PROPERTY(int height READ height) ///< pixels
    Q_PROPERTY(int brightnessAdjustment READ brightnessAdjustment)
    Q_PROPERTY(int contrastAdjustment READ contrastAdjustment)

public:
    DisplaySettings() = default; ///< no display: all fields 0

    /// \param extra a number that travels with the record; nothing in this library reads it
    DisplaySettings(int width, int height, bool hasBrightnessAdjustment, bool hasContrastAdjustment,
                    int extra)
        : m_width(width)
        , m_height(height)
        , m_hasBrightnessAdjustment(hasBrightnessAdjustment)
        , m_hasContrastAdjustment(hasContrastAdjustment)
        , m_extra(extra)
    {
    }

    int width() const { return m_width; }
    int height() const { return m_height; }
    int brightnessAdjustment() const
    {
        return m_hasBrightnessAdjustment ? 1 : 0;
    }                                                                          ///< 1: can be set
    int contrastAdjustment() const { return m_hasContrastAdjustment ? 1 : 0; } ///< 1: can be set
    int extra() const { return m_extra; }

private:
    int m_width = 0;
    int m_height = 0;
    bool m_hasBrightnessAdjustment = false;
    bool m_hasContrastAdjustment = false;
    int m_extra = 0;
};

Q_DECLARE_METATYPE(DisplaySettings)

#endif // DISPLAYSETTINGS_H
