#include "FakeWindowServices.h"

namespace Velmarin::Tests {

namespace {

template <typename Answer>
Answer next(std::deque<Answer>& answers)
{
    if (answers.empty()) {
        return {};
    }
    Answer answer = std::move(answers.front());
    answers.pop_front();
    return answer;
}

} // namespace

QString FakeFileDialogs::openFileName(QWidget*, const QString& caption, const QString& directory,
                                      const QString& filter)
{
    calls.append({QStringLiteral("open"), caption, directory, filter});
    return next(fileAnswers);
}

QStringList FakeFileDialogs::openFileNames(QWidget*, const QString& caption, const QString& directory,
                                           const QString& filter)
{
    calls.append({QStringLiteral("openMany"), caption, directory, filter});
    return next(fileListAnswers);
}

QString FakeFileDialogs::saveFileName(QWidget*, const QString& caption, const QString& directory,
                                      const QString& filter)
{
    calls.append({QStringLiteral("save"), caption, directory, filter});
    return next(fileAnswers);
}

QString FakeFileDialogs::existingDirectory(QWidget*, const QString& caption, const QString& directory)
{
    calls.append({QStringLiteral("folder"), caption, directory, QString()});
    return next(folderAnswers);
}

FakeWindowServices::FakeWindowServices(bool withDeviceManager, const QString& workspaceRoot,
                                       const QString& stateRoot)
{
    if (withDeviceManager) {
        auto deviceManager = std::make_unique<FakeDeviceManager>();
        devices = deviceManager.get();
        m_services.deviceManager = std::move(deviceManager);
    }
    auto fileDialogs = std::make_unique<FakeFileDialogs>();
    dialogs = fileDialogs.get();
    m_services.fileDialogs = std::move(fileDialogs);
    auto probe = std::make_unique<FakeStorageProbe>();
    storage = probe.get();
    m_services.storage = std::move(probe);
    auto opener = std::make_unique<FakeUrlOpener>();
    urls = opener.get();
    m_services.urlOpener = std::move(opener);
    m_services.workspaceRoot = workspaceRoot;
    m_services.stateRoot = stateRoot;
}

UI::MainWindowServices FakeWindowServices::take()
{
    return std::move(m_services);
}

} // namespace Velmarin::Tests
