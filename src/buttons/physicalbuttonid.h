#ifndef PHYSICALBUTTONID_H
#define PHYSICALBUTTONID_H

#include <QMetaType>

/// Which push button; the numbers are the platform's (with a Linux input device, its key codes).
enum PhysicalButtonId : int {};

Q_DECLARE_METATYPE(PhysicalButtonId)

#endif // PHYSICALBUTTONID_H
