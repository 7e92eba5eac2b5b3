// Imports files into a vault as one batch with a checkpoint after every file, so that the crash
// harness can cut between checkpoints as well as inside them; each file goes to the vault's root
// under its own name. The password comes from VELMARIN_PASSWORD.
//
// Usage: velmarin-batch-import <container> <file>...
// Exit status 0 when every file went in.
#include "core/vault/VaultManager.h"

#include <QCoreApplication>
#include <QFileInfo>

using namespace Velmarin;

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments().mid(1);
    if (arguments.size() < 2) {
        return 2;
    }
    QList<Core::ImportItem> items;
    for (const QString& file : arguments.mid(1)) {
        const QFileInfo info(file);
        items.append(Core::ImportItem{file, info.fileName(), info.size(), false});
    }
    Core::VaultManager vault;
    if (!vault.unlock(arguments.at(0), qgetenv("VELMARIN_PASSWORD"))) {
        return 1;
    }
    const Core::ImportBatch::Outcome outcome =
        vault.importBatch(items, {}, Core::ImportBatch::Checkpoints{0, 1});
    return vault.lock() && outcome.succeeded() ? 0 : 1;
}
