<?xml version="1.0" encoding="UTF-8"?>
<!--
  The table of one element or type of a schema, as the configuration guide or a manual page has it. scripts/tables.sh
  puts the tables into the pages.

  The annotations say what stands in the tables: the first documentation of a declaration is its meaning, the one with
  the source "#wrong" what follows from a wrong value. What is written as it is typed stands between grave accents.
  What is required and what a default is, the declarations themselves say.

  Parameters: "table" is the name of the type, or of the root element; "tables"
  the names of all tables of the page, each between blanks: a type among them is not described within another table;
  "format" is markdown or man.
-->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform"
                xmlns:xs="http://www.w3.org/2001/XMLSchema">

  <xsl:output method="text" encoding="UTF-8"/>
  <xsl:param name="table"/>
  <xsl:param name="tables"/>
  <xsl:param name="format"/>

  <xsl:variable name="vrx" select="document('../schemas/vrx.xsd')/xs:schema"/>

  <xsl:template match="/xs:schema">
    <xsl:variable name="type" select="xs:complexType[@name = $table] | xs:element[@name = $table]/xs:complexType"/>
    <xsl:if test="not($type)">
      <xsl:message terminate="yes">The schema has nothing named "<xsl:value-of select="$table"/>".</xsl:message>
    </xsl:if>
    <xsl:choose>
      <xsl:when test="$format = 'man'">.Bl -tag -width Ds&#10;</xsl:when>
      <xsl:otherwise>| item | default | meaning | a wrong value |&#10;|---|---|---|---|&#10;</xsl:otherwise>
    </xsl:choose>
    <xsl:apply-templates select="xs:element[@name = $table]" mode="element-row"/>
    <xsl:apply-templates select="$type" mode="rows"/>
    <xsl:if test="$format = 'man'">.El&#10;</xsl:if>
  </xsl:template>

  <!-- ==== What has a row ==== -->

  <!-- Attributes, those of the type it extends first, then elements. "of" is the element, unless the table is its. -->
  <xsl:template match="xs:complexType" mode="rows">
    <xsl:param name="of"/>
    <xsl:apply-templates select="*/xs:extension/@base" mode="type-rows">
      <xsl:with-param name="of" select="$of"/>
    </xsl:apply-templates>
    <xsl:apply-templates select="(. | */xs:extension)/*[self::xs:attribute or self::xs:attributeGroup]" mode="row">
      <xsl:with-param name="of" select="$of"/>
    </xsl:apply-templates>
    <xsl:variable name="this" select="generate-id()"/>
    <xsl:for-each select=".//*[self::xs:element or self::xs:group][generate-id(ancestor::xs:complexType[1]) = $this]">
      <xsl:variable name="earlier"
                    select="preceding::xs:group[generate-id(ancestor::xs:complexType[1]) = $this]/@ref"/>
      <xsl:if test="not(@ref = $earlier)">
        <xsl:apply-templates select="." mode="row">
          <xsl:with-param name="of" select="$of"/>
        </xsl:apply-templates>
      </xsl:if>
    </xsl:for-each>
  </xsl:template>

  <!-- The rows of a type named elsewhere, unless it has a table, or the language brings it along. -->
  <xsl:template match="@base | @type" mode="type-rows">
    <xsl:param name="of"/>
    <xsl:variable name="named" select="."/>
    <xsl:if test="not(contains($tables, concat(' ', ., ' ')))">
      <xsl:apply-templates mode="rows" select="/xs:schema/xs:complexType[@name = $named]
          | $vrx[starts-with($named, 'vrx:')]/xs:complexType[@name = substring-after($named, 'vrx:')]">
        <xsl:with-param name="of" select="$of"/>
      </xsl:apply-templates>
    </xsl:if>
  </xsl:template>

  <xsl:template match="xs:group" mode="row">
    <xsl:param name="of"/>
    <xsl:apply-templates select="/xs:schema/xs:group[@name = current()/@ref]//xs:element" mode="row">
      <xsl:with-param name="of" select="$of"/>
    </xsl:apply-templates>
  </xsl:template>

  <xsl:template match="xs:attributeGroup" mode="row">
    <xsl:param name="of"/>
    <xsl:apply-templates select="/xs:schema/xs:attributeGroup[@name = current()/@ref]/xs:attribute" mode="row">
      <xsl:with-param name="of" select="$of"/>
    </xsl:apply-templates>
  </xsl:template>

  <xsl:template match="xs:element" mode="row">
    <xsl:param name="of"/>
    <xsl:variable name="name"><xsl:call-template name="qualified-name"/></xsl:variable>
    <xsl:apply-templates select="." mode="element-row">
      <xsl:with-param name="of" select="$of"/>
    </xsl:apply-templates>
    <xsl:apply-templates select="xs:complexType" mode="rows">
      <xsl:with-param name="of" select="$name"/>
    </xsl:apply-templates>
    <xsl:apply-templates select="@type" mode="type-rows">
      <xsl:with-param name="of" select="$name"/>
    </xsl:apply-templates>
  </xsl:template>

  <xsl:template match="xs:element" mode="element-row">
    <xsl:param name="of"/>
    <xsl:call-template name="row">
      <xsl:with-param name="kind">element</xsl:with-param>
      <xsl:with-param name="name"><xsl:call-template name="qualified-name"/></xsl:with-param>
      <xsl:with-param name="joint">in</xsl:with-param>
      <xsl:with-param name="of" select="$of"/>
      <xsl:with-param name="default"><xsl:call-template name="occurrence"/></xsl:with-param>
    </xsl:call-template>
  </xsl:template>

  <xsl:template name="qualified-name">
    <xsl:if test="/xs:schema/@targetNamespace">vrx:</xsl:if>
    <xsl:value-of select="@name"/>
  </xsl:template>

  <!-- A fixed attribute says again what the element's name says; nobody needs to write it. -->
  <xsl:template match="xs:attribute[@fixed]" mode="row"/>

  <xsl:template match="xs:attribute" mode="row">
    <xsl:param name="of"/>
    <xsl:call-template name="row">
      <xsl:with-param name="kind">attribute</xsl:with-param>
      <xsl:with-param name="name" select="@name"/>
      <xsl:with-param name="joint">of</xsl:with-param>
      <xsl:with-param name="of" select="$of"/>
      <xsl:with-param name="default">
        <xsl:choose>
          <xsl:when test="@use = 'required'">required</xsl:when>
          <xsl:when test="@default"><xsl:value-of select="concat('`', @default, '`')"/></xsl:when>
          <xsl:otherwise>none</xsl:otherwise>
        </xsl:choose>
      </xsl:with-param>
    </xsl:call-template>
    <xsl:apply-templates select="xs:simpleType | /xs:schema/xs:simpleType[@name = current()/@type]" mode="rows">
      <xsl:with-param name="of" select="@name"/>
    </xsl:apply-templates>
  </xsl:template>

  <!-- The values that have a meaning of their own. -->
  <xsl:template match="xs:simpleType" mode="rows">
    <xsl:param name="of"/>
    <xsl:for-each select="xs:restriction/xs:enumeration[xs:annotation]">
      <xsl:call-template name="row">
        <xsl:with-param name="kind">value</xsl:with-param>
        <xsl:with-param name="name" select="@value"/>
        <xsl:with-param name="joint">of</xsl:with-param>
        <xsl:with-param name="of" select="$of"/>
      </xsl:call-template>
    </xsl:for-each>
  </xsl:template>

  <!-- Nothing for a root, and for an element of which the order is free: its own text says how often. -->
  <xsl:template name="occurrence">
    <xsl:variable name="uses" select="/xs:schema//xs:group[@ref = current()/ancestor::xs:group/@name]"/>
    <xsl:choose>
      <xsl:when test="$uses and not($uses[not(@minOccurs = 0)])">any number</xsl:when>
      <xsl:when test="$uses or ancestor::xs:choice or parent::xs:schema"/>
      <xsl:when test="@minOccurs = 0 and @maxOccurs">any number</xsl:when>
      <xsl:when test="@minOccurs = 0">optional</xsl:when>
      <xsl:when test="@maxOccurs">one or more</xsl:when>
      <xsl:otherwise>required</xsl:otherwise>
    </xsl:choose>
  </xsl:template>

  <!-- ==== What a row looks like ==== -->

  <xsl:template name="row">
    <xsl:param name="kind"/>
    <xsl:param name="name"/>
    <xsl:param name="joint"/>
    <xsl:param name="of"/>
    <xsl:param name="default"/>
    <xsl:variable name="meaning" select="normalize-space(xs:annotation/xs:documentation[not(@source)])"/>
    <xsl:variable name="wrong" select="normalize-space(xs:annotation/xs:documentation[@source = '#wrong'])"/>
    <xsl:choose>
      <xsl:when test="$format = 'man'">
        <xsl:value-of select="concat('.It ', $kind, ' Ic ', $name)"/>
        <xsl:if test="$of"><xsl:value-of select="concat(' No ', $joint, ' Ic ', $of)"/></xsl:if>
        <xsl:text>&#10;</xsl:text>
        <xsl:call-template name="man-text">
          <xsl:with-param name="text" select="$meaning"/>
        </xsl:call-template>
        <xsl:choose>
          <xsl:when test="$default = 'none' or $default = ''"/>
          <xsl:when test="starts-with($default, '`')">
            <xsl:call-template name="man-text">
              <xsl:with-param name="text" select="concat('Default ', $default, '.')"/>
            </xsl:call-template>
          </xsl:when>
          <xsl:otherwise>
            <xsl:value-of select="concat(translate(substring($default, 1, 1), 'aor', 'AOR'),
                                         substring($default, 2), '.&#10;')"/>
          </xsl:otherwise>
        </xsl:choose>
        <xsl:call-template name="man-text">
          <xsl:with-param name="text" select="$wrong"/>
        </xsl:call-template>
      </xsl:when>
      <xsl:otherwise>
        <xsl:value-of select="concat('| ', $kind, ' `', $name, '`')"/>
        <xsl:if test="$of"><xsl:value-of select="concat(' ', $joint, ' `', $of, '`')"/></xsl:if>
        <xsl:value-of select="concat(' | ', $default, ' | ', $meaning, ' | ', $wrong, ' |&#10;')"/>
      </xsl:otherwise>
    </xsl:choose>
  </xsl:template>

  <!-- A line for each sentence. -->
  <xsl:template name="man-text">
    <xsl:param name="text"/>
    <xsl:choose>
      <xsl:when test="$text = ''"/>
      <xsl:when test="contains($text, '. ')">
        <xsl:call-template name="man-line">
          <xsl:with-param name="text" select="concat(substring-before($text, '. '), '.')"/>
        </xsl:call-template>
        <xsl:call-template name="man-text">
          <xsl:with-param name="text" select="substring-after($text, '. ')"/>
        </xsl:call-template>
      </xsl:when>
      <xsl:otherwise>
        <xsl:call-template name="man-line">
          <xsl:with-param name="text" select="$text"/>
        </xsl:call-template>
      </xsl:otherwise>
    </xsl:choose>
  </xsl:template>

  <!-- A dot or an apostrophe at its beginning would make it a command. -->
  <xsl:template name="man-line">
    <xsl:param name="text"/>
    <xsl:if test="starts-with($text, '.') or starts-with($text, &quot;'&quot;)">\&amp;</xsl:if>
    <xsl:call-template name="man-words">
      <xsl:with-param name="text" select="$text"/>
    </xsl:call-template>
    <xsl:text>&#10;</xsl:text>
  </xsl:template>

  <!-- What stands between grave accents is bold. -->
  <xsl:template name="man-words">
    <xsl:param name="text"/>
    <xsl:choose>
      <xsl:when test="contains($text, '`')">
        <xsl:variable name="rest" select="substring-after($text, '`')"/>
        <xsl:value-of select="substring-before($text, '`')"/>
        <xsl:text>\fB</xsl:text>
        <xsl:call-template name="man-hyphens">
          <xsl:with-param name="text" select="substring-before($rest, '`')"/>
        </xsl:call-template>
        <xsl:text>\fR</xsl:text>
        <xsl:call-template name="man-words">
          <xsl:with-param name="text" select="substring-after($rest, '`')"/>
        </xsl:call-template>
      </xsl:when>
      <xsl:otherwise><xsl:value-of select="$text"/></xsl:otherwise>
    </xsl:choose>
  </xsl:template>

  <!-- As they are typed, not as a text is divided. -->
  <xsl:template name="man-hyphens">
    <xsl:param name="text"/>
    <xsl:choose>
      <xsl:when test="contains($text, '-')">
        <xsl:value-of select="concat(substring-before($text, '-'), '\-')"/>
        <xsl:call-template name="man-hyphens">
          <xsl:with-param name="text" select="substring-after($text, '-')"/>
        </xsl:call-template>
      </xsl:when>
      <xsl:otherwise><xsl:value-of select="$text"/></xsl:otherwise>
    </xsl:choose>
  </xsl:template>

</xsl:stylesheet>
