#include "answers/Answers.h"

namespace {

template <class Value>
AnswerValue ReadAs(QDataStream& stream) {
    Value value = {};
    stream >> value;
    return value;
}

// The index of a value's alternative decides which one is read.
AnswerValue ReadValue(QDataStream& stream, quint8 index) {
    switch (index) {
        case 0:
            return ReadAs<bool>(stream);
        case 1:
            return ReadAs<int>(stream);
        case 2:
            return ReadAs<QString>(stream);
        default:
            return ReadAs<QStringList>(stream);
    }
}

}  // namespace

const Answer* Answers::Find(AnswerId id) const {
    const auto found = m_answers.find(id);
    return found == m_answers.end() ? nullptr : &found->second;
}

void Answers::Set(AnswerId id, AnswerValue value, AnswerSource source) {
    Set(id,
        {.value = std::move(value), .source = source, .chosen = source != AnswerSource::Default});
}

QString Answers::Text(AnswerId id) const {
    const Answer* answer = Find(id);
    return answer == nullptr ? QString() : TextOf(RowOf(id), answer->value);
}

void Answers::Complete(const Answers& weaker) {
    Answers added = weaker;
    const Answer* node = added.Find(AnswerId::ClusterNode);
    if (node != nullptr && node->value == AnswerValue(true) && !added.Find(AnswerId::Queue))
        added.Set(AnswerId::Queue, {QStringLiteral("none"), node->source, node->chosen});
    const Answer* queue = Find(AnswerId::Queue);
    const Answer* otherQueue = added.Find(AnswerId::Queue);
    if (queue != nullptr && otherQueue != nullptr && queue->value != otherQueue->value)
        added.Remove(AnswerId::QueueName);
    m_answers.insert(added.m_answers.begin(), added.m_answers.end());
}

QDataStream& operator<<(QDataStream& stream, const Answers& answers) {
    stream << static_cast<quint32>(answers.All().size());
    for (const auto& [id, answer] : answers.All()) {
        stream << static_cast<quint8>(id) << static_cast<quint8>(answer.source) << answer.chosen
               << static_cast<quint8>(answer.value.index());
        std::visit([&](const auto& value) { stream << value; }, answer.value);
    }
    return stream;
}

QDataStream& operator>>(QDataStream& stream, Answers& answers) {
    quint32 count = 0;
    stream >> count;
    for (quint32 i = 0; i < count && stream.status() == QDataStream::Ok; ++i) {
        quint8 id = 0;
        quint8 source = 0;
        quint8 index = 0;
        Answer answer;
        stream >> id >> source >> answer.chosen >> index;
        answer.source = static_cast<AnswerSource>(source);
        answer.value = ReadValue(stream, index);
        answers.Set(static_cast<AnswerId>(id), answer);
    }
    return stream;
}

Answers AnswersOf(const CInstallBase& run, const Answers& known) {
    Answers answers;
    for (const AnswerRow& row : AnswerRows()) {
        const Answer* before = known.Find(row.id);
        if (row.read == nullptr)
            answers.Set(row.id, before == nullptr ? Answer{.value = false} : *before);
        else if (const AnswerValue value = row.read(run); before && before->value == value)
            answers.Set(row.id, *before);
        else
            answers.Set(row.id, {.value = value});
    }
    return answers;
}

void ApplyAnswers(const Answers& answers, CInstallBase& run) {
    for (const auto& [id, answer] : answers.All()) {
        if (const AnswerRow& row = RowOf(id); row.write != nullptr)
            row.write(run, answer.value);
    }
}
