#include "network/iso8601.h"

namespace velmora::detail {

namespace {

class Scanner
{
public:
    explicit Scanner(QStringView text)
        : m_text(text)
    { }

    bool atEnd() const { return m_pos == m_text.size(); }
    bool peek(char16_t c) const { return !atEnd() && m_text[m_pos] == c; }
    bool expect(char16_t c)
    {
        if (!peek(c))
            return false;
        ++m_pos;
        return true;
    }
    bool number(int digits, int &out)
    {
        int value = 0;
        for (int i = 0; i < digits; ++i) {
            if (atEnd())
                return false;
            const char16_t c = m_text[m_pos].unicode();
            if (c < u'0' || c > u'9')
                return false;
            value = value * 10 + (c - u'0');
            ++m_pos;
        }
        out = value;
        return true;
    }
    // Returns the number of digits read; the value is scaled to milliseconds, truncating.
    int fraction(int &milliseconds)
    {
        int digits = 0;
        milliseconds = 0;
        while (!atEnd() && m_text[m_pos] >= u'0' && m_text[m_pos] <= u'9') {
            if (digits < 3)
                milliseconds = milliseconds * 10 + (m_text[m_pos].unicode() - u'0');
            ++digits;
            ++m_pos;
        }
        for (int i = digits; i < 3; ++i)
            milliseconds *= 10;
        return digits;
    }

private:
    QStringView m_text;
    qsizetype m_pos = 0;
};

} // namespace

std::optional<QDateTime> parseInternetDateTime(QStringView text, FractionalSeconds fraction)
{
    Scanner s(text);
    int year, month, day, hour, minute, second, millis = 0;
    if (!(s.number(4, year) && s.expect(u'-') && s.number(2, month) && s.expect(u'-')
          && s.number(2, day) && s.expect(u'T') && s.number(2, hour) && s.expect(u':')
          && s.number(2, minute) && s.expect(u':') && s.number(2, second)))
        return std::nullopt;

    const bool hasFraction = s.expect(u'.');
    if (hasFraction != (fraction == FractionalSeconds::Required))
        return std::nullopt;
    if (hasFraction && s.fraction(millis) == 0)
        return std::nullopt;

    int offsetSeconds = 0;
    if (!s.expect(u'Z')) {
        int sign = 0;
        if (s.expect(u'+'))
            sign = 1;
        else if (s.expect(u'-'))
            sign = -1;
        else
            return std::nullopt;
        int offsetHours, offsetMinutes;
        if (!(s.number(2, offsetHours) && s.expect(u':') && s.number(2, offsetMinutes))
            || offsetHours > 23 || offsetMinutes > 59)
            return std::nullopt;
        offsetSeconds = sign * (offsetHours * 3600 + offsetMinutes * 60);
    }
    if (!s.atEnd())
        return std::nullopt;

    const QDate date(year, month, day);
    const QTime time(hour, minute, second, millis);
    if (!date.isValid() || !time.isValid())
        return std::nullopt;
    return QDateTime(date, time, Qt::OffsetFromUTC, offsetSeconds).toUTC();
}

} // namespace velmora::detail
