#include "gui/GridModel.h"

#include <QBrush>
#include <QFont>
#include <QTableView>

#include "display/WavePainter.h"

namespace mervasto {

void ApplyColumnWidths(QTableView* v, const Grid& grid) {
    for (int c = 0; c < grid.cols() && c < static_cast<int>(grid.colWidth.size()); ++c)
        if (grid.colWidth[static_cast<size_t>(c)] > 0 && v->columnWidth(c) != grid.colWidth[static_cast<size_t>(c)])
            v->setColumnWidth(c, grid.colWidth[static_cast<size_t>(c)]);
}

int GridModel::rowCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : grid_->rows(); }
int GridModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : grid_->cols(); }

QVariant GridModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || !grid_->contains(index.row(), index.column())) return {};
    const bool fixed = index.row() < grid_->fixedRows || index.column() < grid_->fixedCols;
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole: return QString::fromStdString(grid_->text(index.row(), index.column()));
    case Qt::BackgroundRole: {
        if (auto c = grid_->cellColour(index.row(), index.column())) return QBrush(ColorFromBgr(c->back));
        if (fixed) return QBrush(QColor(0xE8, 0xE8, 0xE8));
        return {};
    }
    case Qt::ForegroundRole:
        if (auto c = grid_->cellColour(index.row(), index.column())) return QBrush(ColorFromBgr(c->fore));
        return {};
    case Qt::ToolTipRole:
        if (const std::string* note = grid_->cellNote(index.row(), index.column()))
            return QString::fromStdString(*note);
        if (rowTip) return QString::fromStdString(rowTip(index.row()));
        return {};
    case Qt::FontRole:
        if (fixed) {
            QFont f;
            f.setBold(true);
            return f;
        }
        return {};
    default: return {};
    }
}

QVariant GridModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Vertical || !rowHeader) return QAbstractTableModel::headerData(section, orientation, role);
    if (role == Qt::DisplayRole) return QString::fromStdString(rowHeader(section));
    if (role == Qt::ToolTipRole && rowTip) return QString::fromStdString(rowTip(section));
    return {};
}

Qt::ItemFlags GridModel::flags(const QModelIndex& index) const {
    Qt::ItemFlags f = QAbstractTableModel::flags(index);
    if (editable && editable(index.row(), index.column())) f |= Qt::ItemIsEditable;
    return f;
}

bool GridModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (role != Qt::EditRole || !edited) return false;
    bool ok = edited(index.row(), index.column(), value.toString().toStdString());
    if (ok) emit dataChanged(this->index(index.row(), 0), this->index(index.row(), columnCount() - 1));
    return ok;
}

void GridModel::refresh() {
    beginResetModel();
    endResetModel();
}

}  // namespace mervasto
