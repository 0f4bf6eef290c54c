#ifndef VYTOOLS1_EXPORT_H
#define VYTOOLS1_EXPORT_H

#include <QtGlobal>

#ifdef VYTOOLS1_LIBRARY
#    define VYTOOLS1_EXPORT Q_DECL_EXPORT
#else
#    define VYTOOLS1_EXPORT Q_DECL_IMPORT
#endif

#endif // VYTOOLS1_EXPORT_H
