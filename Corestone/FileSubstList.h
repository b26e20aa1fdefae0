// The substitution list's internals shared by the substitution sources.
#pragma once

namespace Kiv
{
class CriticalSection;
class FileSubstitute;
class PString;

// The one lock over the list and every entry's members; taken before any archive's own lock.
CriticalSection & SubstLock();
// Empties the entry, makes every other entry forget it, and unlinks and destroys it.
void RemoveSubst(FileSubstitute * entry);
// The same by name; a name with no entry throws.
void RemoveSubst(const PString & name);
} // namespace Kiv
