#ifndef KORRIN_DESCRIPTORS_H
#define KORRIN_DESCRIPTORS_H

namespace Descriptors
{

/// Whether the process may open the files and sockets that an exchange needs.
///
/// Qt ends the process when there is none left for the event loop of a thread.
bool areLeft();

} // namespace Descriptors

#endif
