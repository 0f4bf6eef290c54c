#ifndef INTERFACEPROBE_H
#define INTERFACEPROBE_H

#include <QMetaMethod>
#include <QObject>

#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

/// Where the operation stands among the virtual ones: a pointer to it says so in its first word.
template <typename Operation>
std::ptrdiff_t placeOf(Operation operation)
{
    static_assert(std::is_member_function_pointer_v<Operation>);
    std::ptrdiff_t place = 0;
    std::memcpy(&place, &operation, sizeof place);
    return place;
}

class AfterQObject : public QObject
{
public:
    virtual void next() {}
};

/// The n-th place behind the virtual operations of QObject, from 0 on.
inline std::ptrdiff_t placeAfterQObject(int number)
{
    return placeOf(&AfterQObject::next) + number * static_cast<std::ptrdiff_t>(sizeof(void *));
}

/// The signatures of the class's own signals, slots or other methods, in their order.
inline std::vector<std::string> methodsOf(const QMetaObject &meta, QMetaMethod::MethodType type)
{
    std::vector<std::string> signatures;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        if (meta.method(i).methodType() == type)
            signatures.push_back(meta.method(i).methodSignature().toStdString());
    }
    return signatures;
}

#endif // INTERFACEPROBE_H
