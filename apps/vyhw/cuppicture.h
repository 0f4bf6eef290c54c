#ifndef CUPPICTURE_H
#define CUPPICTURE_H

#include <QString>

class AbstractCupSensor;

/// The sensor on one line: the reading as a bar against the threshold where there is one, and what
/// follows from it, for example
///
///     [######################            |               ]   42 mm  cup      carrier home
QString cupPicture(AbstractCupSensor &sensor);

#endif // CUPPICTURE_H
