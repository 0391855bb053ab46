// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/FileDialog.h"

#include "ui/DisplayFormats.h"
#include "ui/FilePrompts.h"
#include "ui/MessageBoxes.h"
#include "ui/WindowText.h"

#include <QDialogButtonBox>
#include <QFileInfo>
#include <QItemSelectionModel>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QSignalBlocker>

#include <optional>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

constexpr QChar Quote = u'"';

QString pathIn(const QString& folder, QStringView name) {
    if (name.startsWith(u'/')) {
        return name.toString();
    }
    // Not QDir::filePath(), for which ":a" is the path of a resource.
    return folder + (folder.endsWith(u'/') ? QString() : u"/"_s) + name.toString();
}

bool isFile(const QString& path) {
    const QFileInfo info(path);
    return info.exists() && !info.isDir();
}

/// The files that a list such as `"a" "b"` names. Their names may hold quotation marks themselves.
std::optional<QStringList> filesOfList(const QString& folder, QStringView list) {
    constexpr qsizetype LongestPath = 4096;
    if (!list.startsWith(Quote)) {
        return std::nullopt;
    }
    for (qsizetype end = list.indexOf(Quote, 1); end > 0 && end <= LongestPath;
         end = list.indexOf(Quote, end + 1)) {
        const QString path = pathIn(folder, list.sliced(1, end - 1));
        const QStringView rest = list.sliced(end + 1);
        if ((!rest.isEmpty() && !rest.startsWith(u' ')) || !isFile(path)) {
            continue;
        }
        if (rest.trimmed().isEmpty()) {
            return QStringList(path);
        }
        if (const auto others = filesOfList(folder, rest.trimmed())) {
            return QStringList(path) + *others;
        }
    }
    return std::nullopt;
}

/// Whether Qt may take the text for something else than a name.
bool isOdd(const QString& text) {
    return text.startsWith(u':') || text.startsWith(u'~') || text.contains(Quote);
}

QString withSuffix(const QString& path, const QString& suffix) {
    const QString name = QFileInfo(path).fileName();
    const qsizetype dot = name.lastIndexOf(u'.');
    const bool hasSuffix = dot >= 0 && dot < name.size() - 1;
    if (suffix.isEmpty() || name.isEmpty() || hasSuffix) {
        return path;
    }
    return path + (dot >= 0 ? suffix : u'.' + suffix);
}

} // namespace

FileDialog::FileDialog(QWidget* parent, const QString& title, const FilePlaces& places)
    : QFileDialog(parent, title, QFileInfo(places.start).isDir() ? places.start : QString()),
      m_usualPlaces(sidebarUrls()) {
    setSupportedSchemes({u"file"_s});
    QList<QUrl> shown = m_usualPlaces;
    for (const QString& drive : places.drives) {
        const QUrl place = QUrl::fromLocalFile(drive);
        if (!shown.contains(place)) {
            shown.append(place);
        }
    }
    setSidebarUrls(shown);
    if (const QLineEdit* field = nameField()) {
        connect(field, &QLineEdit::textChanged, this, &FileDialog::followText);
    }
}

FileDialog::~FileDialog() {
    // Qt keeps them for the file dialogs of all programs, and the drives may be gone then.
    setSidebarUrls(m_usualPlaces);
}

QString FileDialog::chooseDestination(const QString& proposal, const QString& suffix) {
    setAcceptMode(AcceptSave);
    setFileMode(AnyFile);
    m_suffix = suffix;
    m_proposal = proposal;
    selectFile(pathOf(proposal));
    if (QLineEdit* field = nameField()) {
        field->setText(proposal);
        m_shownProposal = field->text();
        followText(m_shownProposal);
    }
    while (exec() == Accepted) {
        const QString path = (m_chosen.isEmpty() ? selectedFiles() : m_chosen).value(0);
        QString completed = withSuffix(path, m_suffix);
        // A dialog of the desktop's has asked about the name that was typed.
        if (completed == path || mayReplace(completed)) {
            return completed;
        }
    }
    return {};
}

QStringList FileDialog::chooseFiles(FileMode mode) {
    setFileMode(mode);
    if (exec() != Accepted) {
        return {};
    }
    return m_chosen.isEmpty() ? selectedFiles() : m_chosen;
}

void FileDialog::accept() {
    m_chosen.clear();
    const QStringList meant = filesMeant();
    if (meant.isEmpty()) {
        QFileDialog::accept();
    } else if (QFileInfo(meant.constFirst()).isDir()) {
        setDirectory(meant.constFirst());
    } else if (acceptMode() == AcceptOpen || mayReplace(meant.constFirst())) {
        m_chosen = meant;
        done(Accepted);
    }
}

QLineEdit* FileDialog::nameField() const {
    return findChild<QLineEdit*>(u"fileNameEdit"_s);
}

QString FileDialog::pathOf(QStringView name) const {
    return pathIn(directory().absolutePath(), name);
}

QStringList FileDialog::filesMeant() const {
    const QLineEdit* field = nameField();
    if (field == nullptr || field->text().isEmpty()) {
        return {};
    }
    const QString text = field->text();
    const bool odd = isOdd(text);
    if (acceptMode() == AcceptOpen) {
        if (odd && isFile(pathOf(text))) {
            return {pathOf(text)};
        }
        return odd ? filesOfList(directory().absolutePath(), text).value_or(QStringList())
                   : QStringList();
    }
    const bool proposed = text == m_shownProposal;
    const bool literal = text.startsWith(u':') || (proposed && (odd || text != m_proposal));
    const QString path = literal ? pathOf(proposed ? m_proposal : text) : selectedFiles().value(0);
    const QString completed = QFileInfo(path).isDir() ? path : withSuffix(path, m_suffix);
    return literal || completed != path ? QStringList(completed) : QStringList();
}

void FileDialog::followText(const QString& text) {
    QLineEdit* field = nameField();
    const bool changedByQt = field->text() != text;
    if (changedByQt) {
        // While the field has no focus, Qt selects the file that a path names and then shows its
        // name alone, which may be that of another file here.
        const QSignalBlocker blocker(field);
        field->setText(text);
    }
    if (changedByQt || acceptMode() == AcceptSave) {
        deselectOtherRows();
    }
    updateButton();
}

void FileDialog::updateButton() {
    const auto* box = findChild<QDialogButtonBox*>();
    if (box == nullptr || filesMeant().isEmpty()) {
        return;
    }
    const bool opens = acceptMode() == AcceptOpen;
    QPushButton* button = box->button(opens ? QDialogButtonBox::Open : QDialogButtonBox::Save);
    button->setEnabled(true);
    // For "~" it would say that a folder is opened.
    button->setText(opens ? QFileDialog::tr("&Open") : QFileDialog::tr("&Save"));
}

void FileDialog::deselectOtherRows() {
    // Qt takes a selected row for the answer, also one that was selected for an earlier name.
    QItemSelectionModel* selection = findChild<QListView*>(u"listView"_s)->selectionModel();
    QItemSelection others;
    const QModelIndexList rows = selection->selectedRows();
    for (const QModelIndex& row : rows) {
        if (row.data().toString() != nameField()->text()) {
            others.select(row, row);
        }
    }
    // At once: Qt shows the name of what is left after each change.
    selection->select(others, QItemSelectionModel::Deselect | QItemSelectionModel::Rows);
}

bool FileDialog::mayReplace(const QString& path) {
    return !QFileInfo::exists(path) || testOption(DontConfirmOverwrite) ||
           questionYesNo(frontWindow(parentWidget()), windowTitle(),
                         WindowText::tr("%1 já existe.\nDeseja substituí-lo?")
                             .arg(nameInSentence(QFileInfo(path).fileName())));
}

} // namespace Tessel::UI
