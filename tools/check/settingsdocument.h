// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/check/findings.h"
#include "tools/check/textpositions.h"

#include <QJsonValue>
#include <QSet>
#include <QVariant>

/**
 * One settings document as the supervisor reads it, and what was found in it. Finds all that has
 * nothing to do with what the document is about: whether it can be read, is JSON and has an
 * envelope.
 */
class SettingsDocument
{
public:
    /**
     * Reads the document at @p path. What could take long or much memory, such as a device or an
     * unusually large file, is a finding and is not read.
     */
    explicit SettingsDocument(QString path);

    /** What the supervisor gets from the document; null: nothing. */
    QVariant content() const { return m_content; }

    /** Where that stands in the document. */
    JsonPath contentPath() const { return m_contentPath; }

    /** The whole document, as the supervisor's own parser reads it. */
    QJsonValue json() const { return m_json; }

    QJsonValue json(const JsonPath &path) const;

    /** Where the value at @p path stands. */
    Place valuePlace(const JsonPath &path) const { return placeOf(m_positions.value(path)); }

    /** Where the name of the member at @p path stands. */
    Place keyPlace(const JsonPath &path) const { return placeOf(m_positions.key(path)); }

    /** Takes @p finding, which is about the value at @p path unless that is empty. */
    void add(const Finding &finding, const JsonPath &path = JsonPath());

    /** Whether so much was found that no more is taken. */
    bool isFull() const;

    /** Whether a finding is about the value at @p path. */
    bool hasFinding(const JsonPath &path) const { return m_wrong.contains(path); }

    /** All findings in the order of their places; of a great many, the first that were added. */
    Findings findings() const;

private:
    bool isReadable();
    bool readText();
    bool parse(QVariant &tree);
    void unwrap(const QVariant &tree);
    void findOverridden();
    void refuse(const Place &place, const QString &rule, const QString &message,
                const JsonPath &path = JsonPath());
    Place placeOf(int offset) const;

    QString m_path;
    QByteArray m_text;    // what the supervisor hands to its parser
    QVector<int> m_lines; // where they begin
    TextPositions m_positions;
    QJsonValue m_json;
    QVariant m_content;
    JsonPath m_contentPath;
    Findings m_findings;
    QSet<JsonPath> m_wrong;
};
