#ifndef CANDECODE_H
#define CANDECODE_H

class Console;
class QString;

/// Prints the messages of a file of frames, "canBus.txt" or a trace: one line each, with the answer
/// that it got. Fails when the file cannot be read or has a line that is no frame.
void decodeCanFile(const QString &path, Console &console);

#endif // CANDECODE_H
