// Draws the report: the hierarchies as a graph for Graphviz.
#pragma once

#include <iosfwd>
#include <string>

#include "host/report/report.h"

namespace host {

// One cluster a root port, titled with what limits its payload size; a node a device, with a box a
// function: address, type, name, payload size as "before→after of supported", ECRC generation and
// checking. Links carry the size that both ends are set to. Changes stand out in colour and in
// width. Whatever the names are, the text is one that `dot` takes, and the same for the same
// report.
void write_dot(std::ostream &out, const Report &report);

// Writes what write_dot_graph() makes a graph of: the title as a line, then the clusters.
void write_dot_part(std::ostream &out, const Report &report);

// Writes a graph with the clusters of one machine or more.
void write_dot_graph(std::ostream &out, const std::string &title, const std::string &clusters);

}  // namespace host
