#include "archive/archive_tree.h"

ArchiveTree::Verdict ArchiveTree::add(const QByteArrayList& steps, Kind kind)
{
    qsizetype node = 0;
    for (qsizetype i = 0; i < steps.size(); ++i) {
        const Kind wanted = i + 1 < steps.size() ? Kind::Directory : kind;
        const auto key = std::make_pair(node, steps[i]);
        if (const auto known = m_nodes.constFind(key); known != m_nodes.cend()) {
            node = *known;
            if (m_kinds[node] != wanted)
                return Verdict::Conflicts;
            continue;
        }
        if (m_nodes.size() >= m_maxNodes)
            return Verdict::Full;
        node = m_kinds.size();
        m_nodes.insert(key, node);
        m_kinds.append(wanted);
    }
    return Verdict::Fits;
}
