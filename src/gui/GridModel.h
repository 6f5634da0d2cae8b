#pragma once

#include <QAbstractTableModel>

#include <functional>

#include "results/Grid.h"

class QTableView;

namespace mervasto {

// The column widths the results layer gives its grid, in pixels.
void ApplyColumnWidths(QTableView* v, const Grid& grid);

// A table view's window onto a results grid: the grid stays a table of
// texts, so half a million detail rows cost no widgets.
class GridModel : public QAbstractTableModel {
    Q_OBJECT
public:
    explicit GridModel(const Grid* grid, QObject* parent = nullptr) : QAbstractTableModel(parent), grid_(grid) {}

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;

    // The grid's texts or size changed.
    void refresh();

    // Row headers and the tip of a row's cells that have no note of their
    // own; the view shows the headers when it shows its vertical header.
    std::function<std::string(int row)> rowHeader;
    std::function<std::string(int row)> rowTip;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

    // Columns the user may edit, and what an edit does (returns false to refuse).
    std::function<bool(int row, int col)> editable;
    std::function<bool(int row, int col, const std::string& text)> edited;

private:
    const Grid* grid_;
};

}  // namespace mervasto
