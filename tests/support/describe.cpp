// tests/support/describe.cpp: the text form of a database.
#include "support/describe.h"

#include <cstdio>
#include <sstream>

namespace tavlo::test {

namespace {

// Significant digits numbers are described with; 17 tells every double apart.
int gDigits = 17;

std::string Number(double value) {
    char text[40];
    std::snprintf(text, sizeof text, "%.*g", gDigits, value);
    return text;
}

std::string Quoted(const char* text) {
    return text != nullptr ? "\"" + std::string(text) + "\"" : "null";
}

std::string NodeName(const symblk* node) {
    return node != nullptr ? node->name : "-";
}

std::string CategoryNumber(const cat* category) {
    return category != nullptr ? std::to_string(category->number) : "-";
}

// The entries of a list, each as `entry` gives it, separated by blanks.
template <class T, class Entry>
std::string Join(const T* list, const char* open, const char* close, Entry entry) {
    std::string text = open;
    for (; list != nullptr; list = list->next) {
        text += entry(list) + (list->next != nullptr ? " " : "");
    }
    return text + close;
}

std::string Attrs(const attr* list) {
    return Join(list, "{", "}", [](const attr* a) {
        const bool text = a->def != nullptr && a->def->value_type == TAVLO_ATTR_STRING;
        return std::string(a->def != nullptr ? a->def->name : "?") + "=" +
               (text ? Quoted(a->value.text) : Number(a->value.number));
    });
}

std::string Values(const val* list) {
    return Join(list, "{", "}", [](const val* v) { return std::to_string(v->value) + ":" + Quoted(v->text); });
}

std::string Relations(const rxblk* list) {
    return Join(list, "[", "]", [](const rxblk* r) { return NodeName(r->symbol) + Attrs(r->attributes); });
}

void Signal(std::ostringstream& out, const sigblk* s) {
    out << "  signal " << s->name << " start=" << s->start_bit << " length=" << s->length
        << " flags=" << int{s->flags} << " mode=" << s->mode_value
        << " offset=" << Number(s->offset) << " factor=" << Number(s->factor)
        << " unit=" << Quoted(s->unit) << " range=" << Number(s->minimum) << ".."
        << Number(s->maximum) << " receivers=" << s->receiver_count << Relations(s->receivers)
        << " comment=" << Quoted(s->comment) << " attrs=" << Attrs(s->attributes)
        << " values=" << Values(s->value_descriptions)
        << " type=" << (s->sig_type != nullptr ? s->sig_type->name : "-")
        << " valuetype=" << s->value_type << "\n";
}

void Message(std::ostringstream& out, const msgblk* m) {
    out << "message " << m->id << " " << m->name << " dlc=" << m->dlc
        << " count=" << m->signal_count << " transmitter=" << NodeName(m->transmitter)
        << " category=" << CategoryNumber(m->category) << " comment=" << Quoted(m->comment)
        << " attrs=" << Attrs(m->attributes) << " transmitters=" << Relations(m->transmitters) << "\n";
    for (const sigblk* s = m->signals; s != nullptr; s = s->next) {
        Signal(out, s);
    }
    for (const siggroupblk* g = m->signal_groups; g != nullptr; g = g->next) {
        out << "  group " << g->name << " repetitions=" << g->repetitions
            << " message=" << (g->message != nullptr ? g->message->name : "-")
            << " comment=" << Quoted(g->comment) << " members=";
        for (const siglistblk* member = g->signals; member != nullptr; member = member->next) {
            out << (member->signal != nullptr ? member->signal->name : "-") << ",";
        }
        int second = 0;
        for (const secondlistblk* e = g->second_list; e != nullptr; e = e->next) {
            ++second;
        }
        out << " second=" << second << "\n";
    }
}

}  // namespace

std::string DescribeDatabase(const tavlo_root_t& db, int digits) {
    gDigits = digits;
    std::ostringstream out;
    out << "version=" << Quoted(db.version) << " comment=" << Quoted(db.comment) << "\n";
    for (const attr_def* d = db.attr_defs; d != nullptr; d = d->next) {
        out << "definition " << d->name << " object=" << d->object_type << " type=" << d->value_type;
        if (d->value_type == TAVLO_ATTR_STRING) {
            out << " default=" << Quoted(d->default_value.text);
        } else if (d->value_type == TAVLO_ATTR_ENUM) {
            out << " texts=" << Quoted(d->minimum.text) << " default=" << Quoted(d->default_value.text);
        } else {
            out << " range=" << Number(d->minimum.number) << ".." << Number(d->maximum)
                << " default=" << Number(d->default_value.number);
        }
        out << "\n";
    }
    out << "network attrs=" << Attrs(db.db_attrs) << "\n";
    for (const cat* c = db.categories; c != nullptr; c = c->next) {
        out << "category " << c->number << " " << c->name << " value=" << c->value << "\n";
    }
    for (const valtable* t = db.value_tables; t != nullptr; t = t->next) {
        out << "table " << t->name << " " << Values(t->value_descriptions) << "\n";
    }
    for (const sigtype* t = db.sig_types; t != nullptr; t = t->next) {
        out << "sigtype " << t->name << " length=" << t->length << " flags=" << int{t->flags}
            << " offset=" << Number(t->offset) << " factor=" << Number(t->factor)
            << " unit=" << Quoted(t->unit) << " range=" << Number(t->minimum) << ".."
            << Number(t->maximum) << " default=" << Number(t->default_value)
            << " comment=" << Quoted(t->comment) << " attrs=" << Attrs(t->attributes)
            << " table=" << (t->value_list != nullptr ? t->value_list->name : "-")
            << " valuetype=" << t->value_type << "\n";
    }
    for (const symblk* n = db.nodes; n != nullptr; n = n->next) {
        out << "node " << n->name << " comment=" << Quoted(n->comment)
            << " attrs=" << Attrs(n->attributes) << " category=" << CategoryNumber(n->category) << "\n";
    }
    for (const msgblk* m = db.messages; m != nullptr; m = m->next) {
        Message(out, m);
    }
    for (const env_var_blk* e = db.envvars; e != nullptr; e = e->next) {
        out << "envvar " << e->name << " type=" << e->type << " unit=" << Quoted(e->unit)
            << " range=" << Number(e->minimum) << ".." << Number(e->maximum)
            << " initial=" << Number(e->initial_value) << " id=" << e->id
            << " node=" << NodeName(e->node) << " access=" << e->access_type << "/"
            << e->access_node_count << Relations(e->access_nodes)
            << " comment=" << Quoted(e->comment) << " attrs=" << Attrs(e->attributes)
            << " category=" << CategoryNumber(e->category)
            << " values=" << Values(e->value_descriptions) << " data=" << e->data_length << "\n";
    }
    for (const btlblk* b = db.bit_timings; b != nullptr; b = b->next) {
        out << "bittiming " << b->baudrate << " " << int{b->btr1} << " " << int{b->btr2} << "\n";
    }
    out << "filter " << db.filter.number << " categories=";
    for (const filtercatblk* f = db.filter.categories; f != nullptr; f = f->next) {
        out << CategoryNumber(f->act) << ",";
    }
    out << " nodes=";
    for (const rxblk* f = db.filter.nodes; f != nullptr; f = f->next) {
        out << NodeName(f->symbol) << ",";
    }
    out << "\n";
    return out.str();
}

}  // namespace tavlo::test
