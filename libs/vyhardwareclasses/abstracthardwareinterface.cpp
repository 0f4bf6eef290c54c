#include "abstracthardwareinterface.h"

#include <utility>

AbstractHardwareInterface::AbstractHardwareInterface(QString name, QObject *pParent)
    : QObject(pParent)
    , m_name(std::move(name))
{
}

AbstractHardwareInterface::~AbstractHardwareInterface() = default;
