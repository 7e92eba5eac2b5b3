#pragma once

#include <QString>

namespace Velmarin::Core {

// Why the last operation on a vault failed. The engine only names the reason; the window and
// velmarin-cli each put it into words in one place, and the command line picks its exit code from it.
struct Failure
{
    enum class Reason
    {
        None,
        // Asked of a locked vault, or (create, unlock, change the password) of an unlocked one.
        NotUnlocked,
        AlreadyUnlocked,
        // The session was opened read-only.
        ReadOnly,
        // Nothing at the container's path.
        ContainerMissing,
        NotAContainer,
        // Something other than a regular file stands at the container's path: a folder, a pipe, a
        // socket, a device or a link. Refused before anything is read from it.
        NotARegularFile,
        // The header asks for a key derivation far costlier than any this program writes (PBKDF2
        // past VaultCrypto::MaxPbkdf2Iterations): refused before the derivation starts.
        KeyCostTooHigh,
        // Written by a newer Velmarin: "VLTBOX" and a version above ours, in the magic or the header.
        NewerFormat,
        // The password key does not open the master key: a wrong password, or an altered header.
        WrongPassword,
        // Another window or command holds the container.
        InUse,
        // A change was cut short and its journal could not put the container right.
        InterruptedChange,
        PasswordTooShort,
        // The key could not be derived from the password: Argon2id needs memory the system refused.
        NotEnoughMemory,
        // Lock: an edited copy (path) could not be stored; the vault stays unlocked.
        EditNotSaved,
        // The private workspace for copies opened for editing cannot be used (see workspaceProblem).
        WorkspaceUnavailable,
        NoSpace,
        // The index has no more room in the container's header region: no more entries fit.
        IndexFull,
        // The container would pass the largest file the drive's file system can hold.
        FileTooLargeForFileSystem,
        // The file to import (path) could not be opened or read.
        SourceUnreadable,
        // The file to import changed size while it was read.
        SourceChanged,
        DriveRead,
        DriveWrite,
        // A file the vault exports (path) could not be written where the user asked.
        DestinationUnwritable,
        // Authenticated data did not authenticate: a block of path, or the index.
        Damaged,
        // Not a simple name, or a path through a file.
        NameNotAllowed,
        AlreadyExists,
        NotFound,
        FolderNotEmpty,
        // A file open for editing (or a folder holding one) cannot be moved or renamed.
        OpenForEditing,
        // Moving a file into the folder it is in, or a folder into itself.
        SamePlace,
        // Open-for-edit of a file (path) the index records in a way no change of ours writes (see
        // IndexAudit): its edited copy could not come back to it alone. It still exports.
        IrregularEntry
    };

    Reason reason = Reason::None;
    // The vault path or the file on disk the reason is about, when there is one.
    QString path;
    // The system's own words (an errno or Windows error text), when it gave any.
    QString systemError;
    // For a reason that stands for a step that failed (EditNotSaved), why that step failed.
    Reason cause = Reason::None;

    bool operator==(const Failure& other) const
    {
        return reason == other.reason && path == other.path && systemError == other.systemError &&
               cause == other.cause;
    }
};

} // namespace Velmarin::Core
