// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QDialog>
#include <QMap>
#include <QString>

class QLabel;
class QLayout;
class QListWidget;
class QTextEdit;

namespace Tessel::UI {

/// Shows the program's name and version, what it runs on, and the components it is built on with
/// their licences. The components are listed in the order of their names, the first one selected.
class AboutDialog : public QDialog {
    Q_OBJECT

public:
    explicit AboutDialog(QWidget* parent);

    /// Shows the details of the named component; nothing for a name that is not listed.
    void updateDetails(const QString& name);

private:
    void buildUi();
    [[nodiscard]] QLayout* buildHeader();
    [[nodiscard]] QLabel* buildVersionLabel();
    [[nodiscard]] QLabel* buildRuntimeLabel();
    [[nodiscard]] QListWidget* buildComponentList();
    [[nodiscard]] QTextEdit* buildDetailsView();
    [[nodiscard]] QLabel* buildLegalNotice();
    void populateComponents();

    QLabel* m_versionLabel = nullptr;
    QListWidget* m_components = nullptr;
    QTextEdit* m_details = nullptr;
    QMap<QString, QString> m_componentDetails;
};

} // namespace Tessel::UI
