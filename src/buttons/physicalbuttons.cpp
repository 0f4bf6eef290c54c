#include "buttons/physicalbuttons.h"

#include "buttons/abstractphysicalbuttonsreader.h"
#include "buttons/inputeventbuttonsreader.h"
#include "systempath.h"

namespace {

AbstractPhysicalButtonsReader *platformReader()
{
#ifdef VY_PLATFORM_BOARD
    return new InputEventButtonsReader(SystemPath::path(SystemPath::Buttons));
#else
    return nullptr;
#endif
}

} // namespace

PhysicalButtons *PhysicalButtons::m_pInstance = nullptr;

PhysicalButtons *PhysicalButtons::instance()
{
    if (m_pInstance == nullptr)
        m_pInstance = new PhysicalButtons(nullptr);
    return m_pInstance;
}

PhysicalButtons::PhysicalButtons(QObject *pParent)
    : PhysicalButtons(platformReader(), pParent)
{
}

PhysicalButtons::PhysicalButtons(AbstractPhysicalButtonsReader *pReader, QObject *pParent)
    : QObject(pParent)
    , m_pReader(pReader)
{
    qRegisterMetaType<PhysicalButtonId>("PhysicalButtonId");
    if (m_pReader == nullptr)
        return;
    m_pReader->moveToThread(&m_readingThread);
    connect(&m_readingThread, &QThread::started, m_pReader,
            &AbstractPhysicalButtonsReader::startReading);
    connect(m_pReader, &AbstractPhysicalButtonsReader::buttonPressed, this,
            &PhysicalButtons::buttonPressed);
    // By name: the abstract reader does not declare this signal, each platform's reader does.
    connect(m_pReader, SIGNAL(buttonReleased(PhysicalButtonId)), this,
            SIGNAL(buttonReleased(PhysicalButtonId)));
    m_readingThread.start(QThread::TimeCriticalPriority);
}

PhysicalButtons::~PhysicalButtons()
{
    m_readingThread.quit();
    m_readingThread.wait();
    delete m_pReader; // its thread has ended
    if (m_pInstance == this)
        m_pInstance = nullptr;
}
